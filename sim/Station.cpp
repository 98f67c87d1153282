#include "Station.h"

#include "MacModels.h"

#include <map>

namespace sim {

QString ecidText(std::uint64_t ecid) {
    return QStringLiteral("0x") + QString::number(static_cast<qulonglong>(ecid), 16).toUpper();
}

Station::Station(StationConfig config, Scheduler& scheduler)
    : config_(std::move(config)), scheduler_(scheduler) {
    int number = 1;
    for (const HubConfig& hubConfig : config_.hubs) {
        auto hub = std::make_unique<Hub>(hubConfig, number++, scheduler_, config_.timing,
                                         [this] { publishUsb(); });
        for (const MacConfig& macConfig : hubConfig.macs) {
            macs_.push_back(std::make_unique<Mac>(macConfig, hubConfig.serial, scheduler_,
                                                  config_.timing, *this));
            hub->attach(macConfig.port, macs_.back().get());
        }
        scheduleVanishing(*hub);
        std::map<int, std::vector<MacPlug>> plugsByPort;
        for (const MacPlug& plug : hubConfig.plugs) plugsByPort[plug.mac.port].push_back(plug);
        for (auto& [port, plugs] : plugsByPort) addPlugLine(hub.get(), port, std::move(plugs));
        hubs_.push_back(std::move(hub));
    }
    if (config_.localDfu) {
        macs_.push_back(
            std::make_unique<Mac>(*config_.localDfu, 0, scheduler_, config_.timing, *this));
        localMac_ = macs_.back().get();
    }
    if (!config_.localDfuSequence.empty())
        addPlugLine(nullptr, 0, config_.localDfuSequence);
    building_ = false;
    for (const auto& line : lines_)
        after(line->plugs.front().plugAfter, [this, target = line.get()] { plug(*target, 0); });
    publishNow();
}

Station::~Station() {
    for (Scheduler::Token token : timers_) scheduler_.cancel(token);
    scheduler_.cancel(publishTimer_);
    // Macs first: their timers may still call back into the station.
    localMac_ = nullptr;
    lines_.clear();
    macs_.clear();
}

void Station::after(double seconds, std::function<void()> action) {
    timers_.push_back(scheduler_.after(seconds, std::move(action)));
}

void Station::addPlugLine(Hub* hub, int port, std::vector<MacPlug> plugs) {
    auto line = std::make_unique<PlugLine>();
    line->hub = hub;
    line->port = port;
    line->plugs = std::move(plugs);
    for (const MacPlug& plug : line->plugs)
        line->macs.push_back(std::make_unique<Mac>(plug.mac, hub ? hub->serial() : 0, scheduler_,
                                                   config_.timing, *this));
    lines_.push_back(std::move(line));
}

Station::PlugLine* Station::lineOf(const Mac& mac) {
    for (const auto& line : lines_)
        if (line->current == &mac)
            return line.get();
    return nullptr;
}

// Cabling a Mac to the port changes nothing about the Mac itself: it shows up on the bus as
// whatever it is doing at that moment, powered as the port is.
void Station::plug(PlugLine& line, std::size_t index) {
    line.index = index;
    line.current = line.macs[index].get();
    if (line.hub != nullptr)
        line.hub->plugIn(line.port, line.current);
    else
        localMac_ = line.current;
    if (const auto seconds = line.plugs[index].unplugAfter)
        after(*seconds, [this, target = &line, mac = line.current] {
            if (target->current == mac)
                unplug(*target);
        });
    macChanged(*line.current);
}

// Pulling the cable ends a restore under way; the next Mac of the port's sequence follows.
void Station::unplug(PlugLine& line) {
    Mac* unplugged = std::exchange(line.current, nullptr);
    if (unplugged == nullptr)
        return;
    if (line.hub != nullptr)
        line.hub->pullOut(line.port);
    else
        localMac_ = nullptr;
    unplugged->setPowered(false);
    publishUsb();
    const std::size_t next = line.index + 1;
    if (next < line.plugs.size())
        after(line.plugs[next].plugAfter, [this, target = &line, next] { plug(*target, next); });
}

void Station::scheduleVanishing(Hub& hub) {
    if (!hub.config().vanishAfter)
        return;
    Hub* target = &hub;
    timers_.push_back(scheduler_.after(*hub.config().vanishAfter, [this, target] {
        target->setPresent(false);
        if (target->config().returnAfter)
            timers_.push_back(scheduler_.after(*target->config().returnAfter,
                                               [target] { target->setPresent(true); }));
    }));
}

Hub* Station::hubBySerial(std::uint32_t serial) const {
    for (const auto& hub : hubs_)
        if (hub->serial() == serial)
            return hub.get();
    return nullptr;
}

Mac* Station::macByEcid(std::uint64_t ecid) const {
    for (const auto& mac : macs_)
        if (mac->config().ecid == ecid)
            return mac.get();
    for (const auto& line : lines_)
        if (line->current != nullptr && line->current->config().ecid == ecid)
            return line->current;
    return nullptr;
}

std::vector<Mac*> Station::macs() const {
    std::vector<Mac*> result;
    for (const auto& hub : hubs_)
        for (int port = 0; port < Hub::entityCount; ++port)
            if (Mac* mac = hub->macAt(port))
                result.push_back(mac);
    if (localMac_ != nullptr)
        result.push_back(localMac_);
    return result;
}

bool Station::onBus(const Mac& mac) const {
    if (!mac.onBus())
        return false;
    if (mac.hubSerial() == 0)
        return &mac == localMac_;
    const Hub* hub = hubBySerial(mac.hubSerial());
    return hub != nullptr && hub->present() && hub->macAt(mac.config().port) == &mac;
}

std::uint32_t Station::location(const Mac& mac) const {
    if (mac.hubSerial() == 0)
        return 0x00100000u;
    // The hub's upstream-power port has no USB port number of its own; it enumerates behind the
    // hub's internal port 9, next to the control device on 8.
    const Hub* hub = hubBySerial(mac.hubSerial());
    const int port = mac.config().port;
    return hub->location() | static_cast<std::uint32_t>(port == 0 ? 9 : port) << 16;
}

QJsonObject Station::macEntry(const Mac& mac) const {
    const MacConfig& config = mac.config();
    return {{QStringLiteral("ecid"), ecidText(config.ecid)},
            {QStringLiteral("udid"),
             QStringLiteral("0000%1-%2")
                 .arg(chipIdentity(config.deviceType).cpid, 4, 16, QLatin1Char('0'))
                 .arg(static_cast<qulonglong>(config.ecid), 16, 16, QLatin1Char('0'))
                 .toUpper()},
            {QStringLiteral("deviceType"), config.deviceType},
            {QStringLiteral("name"), config.name},
            {QStringLiteral("serialNumber"), config.serialNumber},
            {QStringLiteral("locationID"), static_cast<qint64>(location(mac))},
            {QStringLiteral("state"), macStateName(mac.state())},
            {QStringLiteral("onBus"), onBus(mac)},
            {QStringLiteral("hub"), static_cast<qint64>(mac.hubSerial())},
            {QStringLiteral("port"), config.port},
            {QStringLiteral("garbledRestoreOutput"), config.garbledRestoreOutput},
            {QStringLiteral("engineFault"), mac.engineFault()}};
}

int Station::startRestore(std::uint64_t ecid, QString* message) {
    Mac* mac = macByEcid(ecid);
    if (mac == nullptr) {
        *message = QStringLiteral("No device with ECID %1.").arg(ecidText(ecid));
        return code::notFound;
    }
    if (!onBus(*mac)) {
        *message = QStringLiteral("The device is not on the bus.");
        return 7;
    }
    return mac->startRestore(message);
}

int Station::cancelRestore(std::uint64_t ecid, QString* message) {
    Mac* mac = macByEcid(ecid);
    if (mac == nullptr) {
        *message = QStringLiteral("No device with ECID %1.").arg(ecidText(ecid));
        return code::notFound;
    }
    return mac->cancelRestore(message);
}

void Station::macChanged(Mac& mac) {
    if (building_)
        return;
    publishUsb();
    emitEvent(QStringLiteral("macs"), QStringLiteral("mac.changed"),
              {{QStringLiteral("mac"), macEntry(mac)}});
}

void Station::restoreProgress(Mac& mac, const QString& step, double progress) {
    if (PlugLine* line = lineOf(mac))
        if (const auto at = line->plugs[line->index].unplugAtProgress; at && progress >= *at)
            // Not inside the Mac's own step: pulling the cable ends the restore it is reporting.
            after(0.0, [this, line, unplugged = &mac] {
                if (line->current == unplugged)
                    unplug(*line);
            });
    emitEvent(QStringLiteral("restore"), QStringLiteral("restore.progress"),
              {{QStringLiteral("ecid"), ecidText(mac.config().ecid)},
               {QStringLiteral("step"), step},
               {QStringLiteral("progress"), progress}});
}

void Station::restoreFinished(Mac& mac, int status, const QString& message) {
    if (PlugLine* line = lineOf(mac); line != nullptr && status == 0)
        if (const auto seconds = line->plugs[line->index].unplugAfterRestore)
            after(*seconds, [this, line, unplugged = &mac] {
                if (line->current == unplugged)
                    unplug(*line);
            });
    emitEvent(QStringLiteral("restore"), QStringLiteral("restore.finished"),
              {{QStringLiteral("ecid"), ecidText(mac.config().ecid)},
               {QStringLiteral("status"), status},
               {QStringLiteral("message"), message}});
}

// Changes reach the bus on the next turn of the loop, after the reply to the call that made them.
void Station::publishUsb() {
    if (building_ || publishTimer_ != 0)
        return;
    publishTimer_ = scheduler_.after(0.0, [this] {
        publishTimer_ = 0;
        publishNow();
    });
}

void Station::publishNow() {
    QList<QJsonObject> current{rootHubUsbDevice(1), rootHubUsbDevice(2)};
    current << benchPeripherals();
    for (const auto& hub : hubs_) {
        if (!hub->present())
            continue;
        current << hubUsbDevice(*hub) << hubBillboardUsbDevice(*hub) << hubStemUsbDevice(*hub)
                << hubSuperSpeedUsbDevice(*hub);
        for (int port = 0; port < Hub::entityCount; ++port) {
            const Mac* mac = hub->macAt(port);
            if (mac != nullptr && mac->onBus())
                current << macUsbDevice(*mac, location(*mac));
        }
    }
    if (localMac_ != nullptr && onBus(*localMac_))
        current << macUsbDevice(*localMac_, location(*localMac_));
    for (const UsbChange& change : bus_.update(current))
        emitEvent(QStringLiteral("usb"),
                  change.added ? QStringLiteral("usb.added") : QStringLiteral("usb.removed"),
                  {{QStringLiteral("device"), change.device}});
}

void Station::emitEvent(const QString& topic, const QString& name, const QJsonObject& payload) {
    if (sink_)
        sink_(topic, name, payload);
}

}  // namespace sim
