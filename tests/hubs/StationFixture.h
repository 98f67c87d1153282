#pragma once

#include "FakeStem.h"

#include "configurator/AC2Device.h"
#include "core/NotificationCenter.h"
#include "core/SettingsKeys.h"
#include "core/Sounds.h"
#include "station/ZMRAcronameManager.h"
#include "support/CollaboratorBuilder.h"
#include "support/RecordingAlerts.h"
#include "support/StationBuilder.h"
#include "support/TestSettings.h"
#include "usb/DeviceIOKit.h"
#include "usb/MemoryUsbRegistry.h"

#include <QRegularExpression>
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
        if (microseconds > 0)
            add(QStringLiteral("usleep %1").arg(microseconds));
    }
    void beep() override { add(QStringLiteral("beep")); }
    void play(const QString& name) override { add(QStringLiteral("sound ") + name); }

  private:
    mutable std::mutex mutex_;
    QStringList events_;
};

// One observer event as a line: "1/2 1000:1 settling 3s", "2/3 1000:2 failed at disable, result
// 18", "pass pause 8s".
inline QString describe(const PortProgress& event) {
    const QString where = event.port ? QStringLiteral("%1/%2 %3")
                                           .arg(event.position)
                                           .arg(event.count)
                                           .arg(event.port->name())
                                     : QString();
    switch (event.kind) {
        case PortProgress::Kind::PortStep:
            return QStringLiteral("%1 %2%3").arg(where, portStepName(event.step),
                                                 event.step == PortProgress::Step::Settling
                                                     ? QStringLiteral(" %1s").arg(event.seconds)
                                                     : QString());
        case PortProgress::Kind::PassPause:
            return QStringLiteral("pass pause %1s").arg(event.seconds);
        case PortProgress::Kind::PortResult:
            return event.succeeded ? where + QStringLiteral(" done")
                                   : QStringLiteral("%1 failed at %2, result %3")
                                         .arg(where, portStepName(event.step))
                                         .arg(event.result);
        case PortProgress::Kind::PortSkipped:
            return where + QStringLiteral(" skipped");
    }
    return {};
}

// A station of fake hubs (serials 0x1000 + n) with a Mac on each of ports 1-5, driven by a
// manager whose background work runs inline, so a sequence has finished when its call returns.
class StationFixture : public ::testing::Test {
  protected:
    explicit StationFixture(int hubCount = 1) {
        const StationBuilder station(hubCount, 5, 0x1000);
        for (const StationHub& hub : station.hubs()) {
            backend->modules.push_back({.serial_num = hub.serial, .module = 6, .model = 24});
            for (const StationMac& mac : hub.macs)
                backend->hub(hub.serial).ports[mac.port].orientation = 1;
        }
        core::Settings& s = settings.settings();
        s.setValue(core::keys::acronameDelayAfterSettingPowerMode, 3.0);
        s.setValue(core::keys::acronameDelayAfterSendingDFUCommand, 1.0);
        s.setValue(core::keys::acronameDelayAfterPuttingAllPortInDFUMode, 8.0);
        s.setValue(core::keys::acronameDelayAfterRebootAllPorts, 5.0);
        s.setValue(core::keys::acronameRecoveryRebootDelay, 1.5);
        s.setValue(core::keys::acronameRecoveryRebootTimes, 6);
        s.setValue(core::keys::acronameSkipDFUSDPMode, true);

        center.addObserver(
            {}, [this](const QString& name, const QVariantMap&) { timeline.add("note " + name); });
        backend->observer = [this](const std::string& call) {
            if (recordHubCalls && isCommand(call))
                timeline.add(QString::fromStdString(call));
        };
        manager = std::make_shared<ZMRAcronameManager>(environment());
    }

    ~StationFixture() override { manager->disconnectAllHubs(); }

    ZMRAcronameManagerEnvironment environment() {
        ZMRAcronameManagerEnvironment env =
            CollaboratorBuilder(settings.settings(), timeline, &alerts, &center)
                .acronameManager(backend, timeline);
        env.listDevices = [this](std::function<void(AC2Devices)> callback) { callback(listed); };
        env.hubAddress = [this](std::uint64_t address) {
            return DeviceIOKit(registry, [](const QString&) {})
                .hubAddressWithDeviceAddress(address);
        };
        env.vendorSerialNumber = [this](std::uint64_t address, std::int64_t vendor) {
            return DeviceIOKit(registry, [](const QString&) {})
                .vendorSerialNumberWithDeviceAddress(address, vendor);
        };
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
    // The observer's events in the same timeline as the hub calls and pauses, marked "> ", so
    // their order against the work they describe is checked too.
    PortObserver observer() {
        return [this](const PortProgress& event) { timeline.add("> " + describe(event)); };
    }
    QStringList observed() const { return timeline.events().filter(QRegularExpression("^> ")); }

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
