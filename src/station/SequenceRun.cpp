#include "station/SequenceRun.h"

#include "core/Clock.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"

#include <algorithm>
#include <cmath>

namespace {

// The ports of each hub, hubs in the order their first port appears, ports in list order.
std::vector<AcronamePorts> lanesByHub(const AcronamePorts& ports) {
    std::vector<AcronamePorts> lanes;
    std::vector<const AcronameHub*> laneHubs;
    for (const auto& port : ports) {
        const auto found = std::find(laneHubs.begin(), laneHubs.end(), port->hub());
        if (found == laneHubs.end()) {
            laneHubs.push_back(port->hub());
            lanes.push_back({port});
        } else {
            lanes[std::size_t(found - laneHubs.begin())].push_back(port);
        }
    }
    return lanes;
}

bool sendPowerMode(AcronameHub& hub, std::int64_t mode, std::int64_t port) {
    switch (mode) {
        case 0:
            return hub.setPowerModePowerDeliveryForPort(port);
        case 1:
            return hub.setPowerModeStandardDownstreamForPort(port);
        case 2:
            return hub.setPowerModeChargingDownstreamForPort(port);
        default:
            return true;
    }
}

}  // namespace

SequenceRun::SequenceRun(ZMRAcronameManagerEnvironment environment, const AcronamePorts& ports,
                         PortObserver observer, bool parallel)
    : environment_(std::move(environment)), worked_(ports), parallel_(parallel) {
    for (const auto& port : ports)
        if (port->hub())
            hubs_.push_back(port->hub()->shared_from_this());
    observer_ = oneAtATime(std::move(observer));
}

void SequenceRun::inLanes(const AcronamePorts& ports,
                          const std::function<void(const AcronamePorts&)>& work) const {
    if (!parallel_) {
        work(ports);
        return;
    }
    std::vector<dispatch::Task> tasks;
    for (AcronamePorts& lane : lanesByHub(ports))
        tasks.push_back([&work, lane = std::move(lane)] { work(lane); });
    environment_.runLanes(std::move(tasks));
}

void SequenceRun::tell(PortProgress progress, const AcronamePort* port) const {
    if (!observer_)
        return;
    progress.port = port;
    progress.count = static_cast<int>(worked_.size());
    for (std::size_t i = 0; port && i < worked_.size(); ++i)
        if (worked_[i].get() == port)
            progress.position = static_cast<int>(i + 1);
    observer_(progress);
}

void SequenceRun::tellStep(const AcronamePort& port, PortProgress::Step step,
                           unsigned seconds) const {
    tell({.kind = PortProgress::Kind::PortStep, .step = step, .seconds = seconds}, &port);
}

void SequenceRun::tellDone(const AcronamePort& port, PortProgress::Step step) const {
    tell({.kind = PortProgress::Kind::PortResult, .step = step, .succeeded = true}, &port);
}

void SequenceRun::tellFailed(const AcronamePort& port, PortProgress::Step step) const {
    const AcronameHub* hub = port.hub();
    tell({.kind = PortProgress::Kind::PortResult,
          .step = step,
          .result = hub ? hub->lastPortResult() : -1},
         &port);
}

void SequenceRun::reportFailure(const AcronamePort& port, const char* command) const {
    if (environment_.portFailed)
        environment_.portFailed(port, QString::fromLatin1(command));
}

unsigned SequenceRun::secondsOf(const char* key) const {
    return static_cast<unsigned>(std::trunc(settings().boundedNumber(key)));
}

bool SequenceRun::stopping() const {
    return environment_.stopRequested && environment_.stopRequested();
}

void SequenceRun::passPause(const char* key) const {
    if (stopping())
        return;
    const unsigned seconds = secondsOf(key);
    tell({.kind = PortProgress::Kind::PassPause, .seconds = seconds});
    clock().sleepSeconds(seconds);
}

void SequenceRun::pauseMicroseconds(double seconds) const {
    clock().sleepMicroseconds(seconds > 0 ? static_cast<std::uint64_t>(seconds * 1000000.0) : 0u);
}

bool SequenceRun::raiseFailure(std::atomic<bool>& failed, const AcronamePort& port,
                               PortProgress::Step step) const {
    std::lock_guard hold(*reporting_);
    const bool first = !failed.exchange(true);
    tellFailed(port, step);
    return first;
}

bool SequenceRun::powerModePass(std::int64_t mode, const AcronamePorts& ports,
                                bool lastWork) const {
    std::atomic<bool> failed = false;
    std::atomic<std::int64_t> cycled = 0;
    inLanes(ports, [&](const AcronamePorts& lane) {
        powerModeLane(mode, lane, lastWork, failed, cycled);
    });
    if (failed)
        return false;
    if (cycled > 0)
        passPause(core::keys::acronameDelayAfterSettingPowerMode);
    return true;
}

// What the pass does with a port: nothing when nothing is connected, or when it is already in
// power-delivery mode and such ports are skipped; else it is power-cycled.
SequenceRun::PortStart SequenceRun::startPowerCycle(const AcronamePort& port, bool lastWork) const {
    AcronameHub* hub = port.hub();
    if (!port.isConnected() || !hub) {
        tell({.kind = PortProgress::Kind::PortSkipped}, &port);
        return PortStart::Skip;
    }
    if (hub->inPDModeForPort(port.portID()) &&
        settings().boolForKey(core::keys::acronameSkipDFUSDPMode)) {
        if (lastWork)
            tellDone(port, PortProgress::Step::Enable);
        return PortStart::Skip;
    }
    tellStep(port, PortProgress::Step::Disable);
    return PortStart::Cycle;
}

void SequenceRun::powerModeLane(std::int64_t mode, const AcronamePorts& ports, bool lastWork,
                                std::atomic<bool>& failed,
                                std::atomic<std::int64_t>& cycled) const {
    for (const auto& port : ports) {
        PortStart start = PortStart::Skip;
        if (!beginPort(failed, [&] { start = startPowerCycle(*port, lastWork); }))
            return;
        if (start == PortStart::Skip)
            continue;
        AcronameHub* hub = port->hub();
        const std::int64_t id = port->portID();
        if (!hub->disablePort(id)) {
            raiseFailure(failed, *port, PortProgress::Step::Disable);
            reportFailure(*port, "disable");
            return;
        }
        if (mode >= 0 && mode <= 2)
            tellStep(*port, PortProgress::Step::PowerMode);
        sendPowerMode(*hub, mode, id);
        clock().sleepSeconds(1);
        tellStep(*port, PortProgress::Step::Enable);
        const bool enabled = hub->enablePort(id);
        if (!enabled) {
            raiseFailure(failed, *port, PortProgress::Step::Enable);
            environment_.log(QString::asprintf("error enabling port: %li", long(id)));
            reportFailure(*port, "enable");
        }
        const unsigned settling = secondsOf(core::keys::acronameDelayAfterSettingPowerMode);
        tellStep(*port, PortProgress::Step::Settling, settling);
        clock().sleepSeconds(settling);
        ++cycled;
        if (!enabled)
            return;
        if (lastWork)
            tellDone(*port, PortProgress::Step::Enable);
    }
}
