#pragma once

#include "FakeStem.h"

#include "configurator/AC2Device.h"
#include "core/NotificationCenter.h"
#include "core/SettingsKeys.h"
#include "core/Sounds.h"
#include "hubs/ZMRAcronameManager.h"
#include "support/RecordingAlerts.h"
#include "support/TestSettings.h"
#include "usb/DeviceIOKit.h"
#include "usb/MemoryUsbRegistry.h"

#include <QStringList>

#include <gtest/gtest.h>

#include <mutex>

namespace testing_support {

// Every observable step of the manager in one ordered list: hub commands, pauses, update texts,
// notifications, beeps and completions. It is the manager's clock and sound player too.
class Timeline final : public core::Clock, public core::Sounds {
public:
    void add(const QString& event) {
        std::lock_guard lock(mutex_);
        events_ << event;
    }
    QStringList events() const {
        std::lock_guard lock(mutex_);
        return events_;
    }
    void clear() {
        std::lock_guard lock(mutex_);
        events_.clear();
    }

    QDateTime now() const override { return QDateTime(QDate(2026, 3, 14), QTime(9, 0)); }
    void sleepSeconds(unsigned seconds) override { add(QStringLiteral("sleep %1").arg(seconds)); }
    void sleepMicroseconds(std::uint64_t microseconds) override {
        // The zero-length yield before each hub command is not a pause.
        if (microseconds > 0) add(QStringLiteral("usleep %1").arg(microseconds));
    }
    void beep() override { add(QStringLiteral("beep")); }
    void play(const QString& name) override { add(QStringLiteral("sound ") + name); }

private:
    mutable std::mutex mutex_;
    QStringList events_;
};

// A station of fake hubs (serials 0x1000 + n) with Macs on ports 1-5, driven by a manager whose
// background work runs inline, so a sequence has finished when its call returns.
class StationFixture : public ::testing::Test {
protected:
    explicit StationFixture(int hubCount = 1) {
        for (int n = 0; n < hubCount; ++n) {
            const std::uint32_t serial = 0x1000 + n;
            stem::LinkSpec spec{};
            spec.serial_num = serial;
            spec.module = 6;
            spec.model = 24;
            backend->modules.push_back(spec);
            for (int p = 1; p <= 5; ++p) backend->hub(serial).ports[p].orientation = 1;
        }
        core::Settings& s = settings.settings();
        s.setValue(core::keys::acronameDelayAfterSettingPowerMode, 3.0);
        s.setValue(core::keys::acronameDelayAfterSendingDFUCommand, 1.0);
        s.setValue(core::keys::acronameDelayAfterPuttingAllPortInDFUMode, 8.0);
        s.setValue(core::keys::acronameDelayAfterRebootAllPorts, 5.0);
        s.setValue(core::keys::acronameRecoveryRebootDelay, 1.5);
        s.setValue(core::keys::acronameRecoveryRebootTimes, 6);
        s.setValue(core::keys::acronameSkipDFUSDPMode, true);

        center.addObserver({}, [this](const QString& name, const QVariantMap&) { timeline.add("note " + name); });
        backend->observer = [this](const std::string& call) {
            if (recordHubCalls && isCommand(call)) timeline.add(QString::fromStdString(call));
        };
        manager = std::make_shared<ZMRAcronameManager>(environment());
    }

    ~StationFixture() override { manager->disconnectAllHubs(); }

    ZMRAcronameManagerEnvironment environment() {
        ZMRAcronameManagerEnvironment env;
        env.backend = backend;
        env.settings = &settings.settings();
        env.clock = &timeline;
        env.notifications = &center;
        env.sounds = &timeline;
        env.alerts = &alerts;
        env.runInBackground = [](dispatch::Task task) { task(); };
        env.runOnMain = [](dispatch::Task task) { task(); };
        env.runLanes = [](std::vector<dispatch::Task> lanes) {
            for (const auto& lane : lanes) lane();
        };
        env.listDevices = [this](std::function<void(AC2Devices)> callback) { callback(listed); };
        env.hubAddress = [this](std::uint64_t address) { return DeviceIOKit(registry, [](const QString&) {}).hubAddressWithDeviceAddress(address); };
        env.vendorSerialNumber = [this](std::uint64_t address, std::int64_t vendor) {
            return DeviceIOKit(registry, [](const QString&) {}).vendorSerialNumberWithDeviceAddress(address, vendor);
        };
        env.console = {[](const std::string&) {}, [](const std::string&) {}};
        env.log = [this](const QString& line) { logLines << line; };
        return env;
    }

    // Refreshes, then records only what comes after.
    AcronamePorts refreshedPorts() {
        AcronamePorts ports;
        manager->refreshAcronameDevices([&](AC2Devices entries) {
            for (const auto& entry : entries) ports.push_back(entry->port());
        });
        timeline.clear();
        logLines.clear();
        recordHubCalls = true;
        return ports;
    }

    ZMRAcronameManager::Update update() {
        return [this](const QString& text) { timeline.add("update " + text); };
    }
    ZMRAcronameManager::Completion completion() {
        return [this](bool ok) { timeline.add(ok ? "done true" : "done false"); };
    }

    static bool isCommand(const std::string& call) {
        return call.ends_with(".setEnabled") || call.ends_with(".setPowerMode") ||
               call.ends_with(".setUEIBytes");
    }

    Timeline timeline;
    std::shared_ptr<FakeBackend> backend = std::make_shared<FakeBackend>();
    TestSettings settings{false};
    core::NotificationCenter center;
    RecordingAlerts alerts;
    usb::MemoryUsbRegistry registry;
    AC2Devices listed;
    QStringList logLines;
    bool recordHubCalls = false;
    std::shared_ptr<ZMRAcronameManager> manager;
};

}  // namespace testing_support
