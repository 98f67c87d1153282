#pragma once

#include "app/HubStation.h"

#include "configurator/AC2Device.h"
#include "hubs/AcronameHub.h"
#include "support/StationBuilder.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

namespace testing_support {

// Hubs and ports made up by the test, with every request recorded. A refresh answers the
// entries at once unless held; a sequence waits until the test finishes it, so its sheet can be
// watched.
class ScriptedHubStation final : public app::HubStation {
  public:
    // A hub with ports 1-5, a Mac on the odd ones; each port reads 5 V and a current of 0.1 A
    // times its number.
    std::shared_ptr<AcronameHub> addHub(std::uint32_t serial) {
        auto hub = StationBuilder(1, 5, serial).acronameHubs().front();
        hub->setFirmwareVersion(QStringLiteral("2.10.4"));
        for (const auto& port : hub->ports()) {
            port->setIsConnected(port->portID() % 2 == 1);
            port->setVBusVoltage(5.0f);
            port->setVBusCurrent(0.1f * static_cast<float>(port->portID()));
            auto entry = std::make_shared<AC2Device>();
            entry->setPort(port);
            entry->setLocationID(0x01100000 + port->portID() * 0x10000);
            entries << entry;
        }
        hubs.push_back(hub);
        return hub;
    }

    void refreshAcronameDevices(std::function<void(AC2Devices)> completion) override {
        ++refreshes;
        if (holdRefreshes)
            heldRefresh = [this, completion] { completion(entries); };
        else
            completion(entries);
    }
    void dfuModeForAcronamePorts(AcronamePorts ports, Update update, Completion completion,
                                 PortObserver observer) override {
        start(QStringLiteral("dfu"), std::move(ports), std::move(update), std::move(completion));
        runningObserver = std::move(observer);
    }
    void restartForAcronamePorts(AcronamePorts ports, Update update, Completion completion,
                                 PortObserver) override {
        start(QStringLiteral("restart"), std::move(ports), std::move(update),
              std::move(completion));
    }
    void recoveryForAcronamePorts(AcronamePorts ports, Update update, Completion completion,
                                  PortObserver) override {
        start(QStringLiteral("recovery"), std::move(ports), std::move(update),
              std::move(completion));
    }
    bool worksHubsAtOnce() const override { return parallel; }
    void rebootHub(AcronameHub& hub) override {
        requests << QStringLiteral("reboot %1").arg(hub.serialNumber(), 0, 16);
    }
    void toggleLED(AcronameHub& hub) override {
        requests << QStringLiteral("led %1").arg(hub.serialNumber(), 0, 16);
    }

    // The running sequence tells its progress, then ends.
    void say(const QString& text) { runningUpdate(text); }
    void finish(bool success = true) {
        auto done = std::move(runningCompletion);
        runningCompletion = nullptr;
        done(success);
    }

    std::vector<std::shared_ptr<AcronameHub>> hubs;
    AC2Devices entries;
    int refreshes = 0;
    // When set, a refresh completes only when the test calls heldRefresh.
    bool holdRefreshes = false;
    std::function<void()> heldRefresh;
    // "dfu 1001:3 1001:1": the sequence and its ports as handed over.
    QStringList requests;
    Update runningUpdate;
    Completion runningCompletion;
    PortObserver runningObserver;
    bool parallel = false;

  private:
    void start(const QString& name, AcronamePorts ports, Update onUpdate, Completion onCompletion) {
        QStringList words{name};
        for (const auto& port : ports)
            words << QStringLiteral("%1:%2")
                         .arg(port->hub()->serialNumber(), 0, 16)
                         .arg(port->portID());
        requests << words.join(' ');
        runningUpdate = std::move(onUpdate);
        runningCompletion = std::move(onCompletion);
    }
};

}  // namespace testing_support
