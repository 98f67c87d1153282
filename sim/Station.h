#pragma once

#include "Hub.h"
#include "Mac.h"
#include "Scheduler.h"
#include "StationConfig.h"
#include "UsbBus.h"

#include <QJsonArray>
#include <QJsonObject>

#include <functional>
#include <memory>
#include <vector>

namespace sim {

QString ecidText(std::uint64_t ecid);  // "0x" and upper-case hexadecimal digits

// The whole bench: hubs, the Macs on their ports and on the host's DFU port, and the USB bus
// they show up on. Every change is published as USB and Mac events to the sink.
class Station final : public MacObserver {
  public:
    using EventSink =
        std::function<void(const QString& topic, const QString& name, const QJsonObject& payload)>;

    Station(StationConfig config, Scheduler& scheduler);
    ~Station() override;
    Station(const Station&) = delete;
    Station& operator=(const Station&) = delete;

    void setEventSink(EventSink sink) { sink_ = std::move(sink); }
    const StationConfig& config() const { return config_; }
    Scheduler& scheduler() { return scheduler_; }

    const std::vector<std::unique_ptr<Hub>>& hubs() const { return hubs_; }
    Hub* hubBySerial(std::uint32_t serial) const;
    Mac* macByEcid(std::uint64_t ecid) const;
    // The Mac cabled to the host's DFU port right now, if any.
    Mac* localMac() const { return localMac_; }
    // Hub Macs in hub and port order, then the local one.
    std::vector<Mac*> macs() const;

    bool onBus(const Mac& mac) const;
    std::uint32_t location(const Mac& mac) const;
    QJsonArray usbDevices() const { return bus_.devices(); }
    QJsonObject macEntry(const Mac& mac) const;

    // A fresh library link id; 0 is never one.
    quint64 newLink() { return nextLink_++; }

    int startRestore(std::uint64_t ecid, QString* message);
    int cancelRestore(std::uint64_t ecid, QString* message);

    void macChanged(Mac& mac) override;
    void restoreProgress(Mac& mac, const QString& step, double progress) override;
    void restoreFinished(Mac& mac, int status, const QString& message) override;

  private:
    void publishUsb();
    void publishNow();
    void emitEvent(const QString& topic, const QString& name, const QJsonObject& payload);
    // One port Macs are plugged into one after another: a hub port, or the host's DFU port
    // (no hub).
    struct PlugLine {
        Hub* hub = nullptr;
        int port = 0;
        std::vector<MacPlug> plugs;
        std::vector<std::unique_ptr<Mac>> macs;  // one per plug
        std::size_t index = 0;
        Mac* current = nullptr;
    };

    void scheduleVanishing(Hub& hub);
    void addPlugLine(Hub* hub, int port, std::vector<MacPlug> plugs);
    void plug(PlugLine& line, std::size_t index);
    void unplug(PlugLine& line);
    PlugLine* lineOf(const Mac& mac);
    void after(double seconds, std::function<void()> action);

    StationConfig config_;
    Scheduler& scheduler_;
    EventSink sink_;
    std::vector<std::unique_ptr<Hub>> hubs_;
    std::vector<std::unique_ptr<Mac>> macs_;
    Mac* localMac_ = nullptr;
    std::vector<std::unique_ptr<PlugLine>> lines_;
    UsbBus bus_;
    std::vector<Scheduler::Token> timers_;
    bool building_ = true;
    Scheduler::Token publishTimer_ = 0;
    quint64 nextLink_ = 1;
};

}  // namespace sim
