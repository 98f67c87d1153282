// The four timed sequences of ZMRAcronameManager. Each runs on one background worker from the
// power-mode pass to its last completion, sleeping there between steps, so a hub sees one
// command at a time. With parallel hubs, each pass over the ports splits them by hub into lanes
// that run at once, each lane doing for its ports what the pass does for all; the pauses over
// all ports come once, after every lane has finished.
#include "hubs/ZMRAcronameManager.h"

#include "core/Clock.h"
#include "core/NotificationCenter.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"
#include "core/Sounds.h"

#include <algorithm>
#include <atomic>
#include <cmath>

namespace {

const QString kLastRequestedStayInFront = QStringLiteral("LastRequestedStayInFrontNotification");
const QString kCancelStayInFront = QStringLiteral("CancelStayInFrontNotification");
constexpr std::int64_t kDefaultRecoveryReboots = 6;

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

}  // namespace

// What one run of a sequence needs: the collaborators, and a weak link back to the manager for
// the refresh after a failure (the sequence never keeps the manager alive).
struct ZMRAcronameManager::Sequence {
    ZMRAcronameManagerEnvironment environment;
    std::weak_ptr<ZMRAcronameManager> manager;
    // Ports point at their hubs without owning them, and a refresh in the middle of a sequence
    // replaces the manager's hubs: the run keeps the hubs of its ports alive until it ends.
    std::vector<std::shared_ptr<AcronameHub>> hubs;
    PortObserver observer;
    // The sequence's list, for each port's place in it.
    AcronamePorts worked;
    bool parallel;
    // One lock for everything the lanes report, so texts, events and completions reach the
    // listeners one at a time and in the order they happened.
    std::shared_ptr<std::recursive_mutex> reporting = std::make_shared<std::recursive_mutex>();

    Sequence(ZMRAcronameManagerEnvironment env, std::weak_ptr<ZMRAcronameManager> owner,
             const AcronamePorts& list, PortObserver watcher, bool inLanes)
        : environment(std::move(env)), manager(std::move(owner)), worked(list), parallel(inLanes) {
        for (const auto& port : list)
            if (port->hub()) hubs.push_back(port->hub()->shared_from_this());
        observer = parallel ? oneAtATime(std::move(watcher)) : std::move(watcher);
    }

    // Lanes report from several threads; whoever listens hears one report at a time.
    template <typename Callback>
    Callback oneAtATime(Callback callback) const {
        if (!callback || !parallel)
            return callback;
        return [lock = reporting, callback = std::move(callback)](const auto& value) {
            std::lock_guard hold(*lock);
            callback(value);
        };
    }

    // Runs `work` over all ports at once, or over each hub's ports at once in parallel lanes.
    void inLanes(const AcronamePorts& ports,
                 const std::function<void(const AcronamePorts&)>& work) const {
        if (!parallel) {
            work(ports);
            return;
        }
        std::vector<dispatch::Task> tasks;
        for (AcronamePorts& lane : lanesByHub(ports))
            tasks.push_back([&work, lane = std::move(lane)] { work(lane); });
        environment.runLanes(std::move(tasks));
    }

    void tell(PortProgress progress, const AcronamePort* port = nullptr) const {
        if (!observer)
            return;
        progress.port = port;
        progress.count = static_cast<int>(worked.size());
        for (std::size_t i = 0; port && i < worked.size(); ++i)
            if (worked[i].get() == port)
                progress.position = static_cast<int>(i + 1);
        observer(progress);
    }

    void tellStep(const AcronamePort& port, PortProgress::Step step, unsigned seconds = 0) const {
        tell({.kind = PortProgress::Kind::PortStep, .step = step, .seconds = seconds}, &port);
    }

    void tellDone(const AcronamePort& port, PortProgress::Step step) const {
        tell({.kind = PortProgress::Kind::PortResult, .step = step, .succeeded = true}, &port);
    }

    void tellFailed(const AcronamePort& port, PortProgress::Step step) const {
        const AcronameHub* hub = port.hub();
        tell({.kind = PortProgress::Kind::PortResult,
              .step = step,
              .result = hub ? hub->lastPortResult() : -1},
             &port);
    }

    void tellSkipped(const AcronamePort& port) const {
        tell({.kind = PortProgress::Kind::PortSkipped}, &port);
    }

    void tellPassPause(unsigned seconds) const {
        tell({.kind = PortProgress::Kind::PassPause, .seconds = seconds});
    }

    core::Settings& settings() const { return *environment.settings; }
    core::Clock& clock() const { return *environment.clock; }

    // Whole seconds, truncated toward zero.
    unsigned secondsOf(const char* key) const {
        return static_cast<unsigned>(std::trunc(settings().boundedNumber(key)));
    }

    void pauseSeconds(const char* key) const { clock().sleepSeconds(secondsOf(key)); }

    bool stopping() const { return environment.stopRequested && environment.stopRequested(); }

    void passPause(const char* key) const {
        if (stopping())
            return;
        const unsigned seconds = secondsOf(key);
        tellPassPause(seconds);
        clock().sleepSeconds(seconds);
    }

    void pauseMicroseconds(double seconds) const {
        clock().sleepMicroseconds(seconds > 0 ? static_cast<std::uint64_t>(seconds * 1000000.0) : 0u);
    }

    void reportFailure(const AcronamePort& port, const char* command) const {
        if (environment.portFailed) environment.portFailed(port, QString::fromLatin1(command));
    }

    void refresh() const {
        if (!environment.refreshAfterFailure)
            return;
        if (auto strong = manager.lock()) strong->refreshAcronameDevices([](AC2Devices) {});
    }

    static bool sendPowerMode(AcronameHub& hub, std::int64_t mode, std::int64_t port) {
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

    // Power-cycles every connected port (disable, mode, 1 s, enable, pause) and answers whether
    // all of them came back. Stops at the first port that cannot be disabled or re-enabled. A
    // pass that is the whole of the work tells each port's success; a pass before other work
    // tells only its failures and the ports it leaves alone.
    bool powerModePass(std::int64_t mode, const AcronamePorts& ports, bool lastWork) const {
        std::atomic<bool> failed = false;
        std::atomic<std::int64_t> cycled = 0;
        inLanes(ports, [&](const AcronamePorts& lane) {
            powerModeLane(mode, lane, lastWork, failed, cycled);
        });
        if (failed) return false;
        if (cycled > 0)
            passPause(core::keys::acronameDelayAfterSettingPowerMode);
        return true;
    }

    // Whether a lane may begin its next port: no lane has failed yet. The check and the port's
    // first report are made under the reporting lock, where failures are raised, so once a
    // failure has been told no lane begins another port.
    template <typename Begin>
    bool beginPort(const std::atomic<bool>& failed, Begin&& begin) const {
        std::lock_guard hold(*reporting);
        if (failed || stopping())
            return false;
        begin();
        return true;
    }

    // Raises the sequence's failure and tells it; answers whether this was the first failure.
    bool raiseFailure(std::atomic<bool>& failed, const AcronamePort& port,
                      PortProgress::Step step) const {
        std::lock_guard hold(*reporting);
        const bool first = !failed.exchange(true);
        tellFailed(port, step);
        return first;
    }

    enum class PortStart { Skip, Cycle };

    // What the pass does with a port: nothing when nothing is connected, or when it is already in
    // power-delivery mode and such ports are skipped; else it is power-cycled.
    PortStart startPowerCycle(const AcronamePort& port, bool lastWork) const {
        AcronameHub* hub = port.hub();
        if (!port.isConnected() || !hub) {
            tellSkipped(port);
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

    void powerModeLane(std::int64_t mode, const AcronamePorts& ports, bool lastWork,
                       std::atomic<bool>& failed, std::atomic<std::int64_t>& cycled) const {
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
                environment.log(QString::asprintf("error enabling port: %li", long(id)));
                reportFailure(*port, "enable");
            }
            const unsigned settling = secondsOf(core::keys::acronameDelayAfterSettingPowerMode);
            tellStep(*port, PortProgress::Step::Settling, settling);
            clock().sleepSeconds(settling);
            ++cycled;
            if (!enabled) return;
            if (lastWork)
                tellDone(*port, PortProgress::Step::Enable);
        }
    }

    bool rebootPort(const AcronamePort& port) const {
        tellStep(port, PortProgress::Step::Reboot);
        AcronameHub* hub = port.hub();
        const bool rebooted = hub && hub->rebootPort(port.portID());
        if (!rebooted)
            tellFailed(port, PortProgress::Step::Reboot);
        return rebooted;
    }

    void dfu(const AcronamePorts& ports, const Update& update, const Completion& completion) const {
        if (!powerModePass(0, ports, false)) {
            completion(false);
            return;
        }
        update(QStringLiteral("Putting devices into DFU mode (sending DFU command)"));
        std::atomic<bool> failed = false;
        inLanes(ports, [&](const AcronamePorts& lane) { dfuLane(lane, update, failed); });
        passPause(core::keys::acronameDelayAfterPuttingAllPortInDFUMode);
        if (failed) {
            update(QStringLiteral("Refreshing Devices..."));
            refresh();
            completion(false);
        }
        update(QStringLiteral("Finishing Up..."));
        if (!settings().boolForKey(core::keys::acronameSkipDFUSDPMode))
            powerModePass(2, ports, false);
        completion(true);
    }

    void dfuLane(const AcronamePorts& ports, const Update& update, std::atomic<bool>& failed) const {
        for (const auto& port : ports) {
            if (!port->isConnected()) continue;
            const bool begun = beginPort(failed, [&] {
                update(QStringLiteral("Putting ports into DFU Mode..."));
                environment.notifications->post(kLastRequestedStayInFront);
                tellStep(*port, PortProgress::Step::DfuMessage);
            });
            if (!begun)
                return;
            AcronameHub* hub = port->hub();
            const bool sent = hub && hub->dfuPort(port->portID());
            if (sent)
                tellDone(*port, PortProgress::Step::DfuMessage);
            else
                raiseFailure(failed, *port, PortProgress::Step::DfuMessage);
            const unsigned settling = secondsOf(core::keys::acronameDelayAfterSendingDFUCommand);
            tellStep(*port, PortProgress::Step::Settling, settling);
            clock().sleepSeconds(settling);
            if (!sent) {
                reportFailure(*port, "DFU command");
                environment.notifications->post(kCancelStayInFront);
                environment.sounds->beep();
                return;
            }
        }
    }

    void restart(const AcronamePorts& ports, const Update& update, const Completion& completion) const {
        if (!powerModePass(0, ports, false)) {
            completion(false);
            refresh();
            return;
        }
        std::atomic<bool> failed = false;
        inLanes(ports, [&](const AcronamePorts& lane) {
            for (const auto& port : lane) {
                if (!beginPort(failed, [&] { tellStep(*port, PortProgress::Step::Reboot); }))
                    return;
                AcronameHub* hub = port->hub();
                if (hub && hub->rebootPort(port->portID())) {
                    tellDone(*port, PortProgress::Step::Reboot);
                    continue;
                }
                // Lanes failing together still make one failure of the sequence.
                const bool first = raiseFailure(failed, *port, PortProgress::Step::Reboot);
                reportFailure(*port, "reboot");
                if (first) {
                    environment.sounds->beep();
                    completion(false);
                }
                return;
            }
        });
        update(QStringLiteral("Finishing Up..."));
        passPause(core::keys::acronameDelayAfterRebootAllPorts);
        if (failed) {
            refresh();
            completion(false);
        }
        completion(true);
    }

    std::int64_t recoveryReboots() const {
        const std::int64_t times = settings().integerForKey(core::keys::acronameRecoveryRebootTimes);
        return times >= 1 && times <= 10 ? times : kDefaultRecoveryReboots;
    }

    // Reboot failures do not stop a recovery; a port is done when its last reboot went out.
    void recovery(const AcronamePorts& ports, const Update& update, const Completion& completion) const {
        if (!powerModePass(0, ports, false)) {
            completion(false);
            refresh();
            return;
        }
        passPause(core::keys::acronameDelayAfterSettingPowerMode);
        const double delay = settings().boundedNumber(core::keys::acronameRecoveryRebootDelay);
        const std::int64_t cycles = recoveryReboots();
        for (std::int64_t i = 1; i <= cycles && !stopping(); ++i) {
            update(QString::asprintf("Restarting %i of %li times", int(i), long(cycles)));
            inLanes(ports, [&](const AcronamePorts& lane) {
                for (const auto& port : lane)
                    if (rebootPort(*port) && i == cycles)
                        tellDone(*port, PortProgress::Step::Reboot);
            });
            pauseMicroseconds(delay);
        }
        update(QStringLiteral("Finishing Up..."));
        passPause(core::keys::acronameDelayAfterRebootAllPorts);
        completion(true);
    }
};

void ZMRAcronameManager::setPowerMode(std::int64_t mode, AcronamePorts ports, Completion completion,
                                      PortObserver observer) {
    Sequence sequence(environment_, weak_from_this(), ports, std::move(observer), parallelHubs());
    environment_.runInBackground(
        [sequence, mode, ports = std::move(ports), completion = std::move(completion)] {
            completion(sequence.powerModePass(mode, ports, true));
        });
}

void ZMRAcronameManager::runSequence(AcronamePorts ports, Update update, Completion completion,
                                     SequenceStep step, PortObserver observer) {
    Sequence sequence(environment_, weak_from_this(), ports, std::move(observer), parallelHubs());
    environment_.runInBackground([sequence, step, ports = std::move(ports),
                                  update = sequence.oneAtATime(std::move(update)),
                                  completion = sequence.oneAtATime(std::move(completion))] {
        (sequence.*step)(ports, update, completion);
    });
}

void ZMRAcronameManager::dfuModeForAcronamePorts(AcronamePorts ports, Update update,
                                                 Completion completion, PortObserver observer) {
    if (ports.empty()) {
        completion(false);
        return;
    }
    update(QStringLiteral("Putting devices into DFU mode (setting power role)"));
    runSequence(std::move(ports), std::move(update), std::move(completion), &Sequence::dfu,
                std::move(observer));
}

void ZMRAcronameManager::restartForAcronamePorts(AcronamePorts ports, Update update,
                                                 Completion completion, PortObserver observer) {
    update(QStringLiteral("Preparing to restart devices..."));
    if (ports.empty()) {
        completion(false);
        return;
    }
    update(QStringLiteral("Restarting devices"));
    runSequence(std::move(ports), std::move(update), std::move(completion), &Sequence::restart,
                std::move(observer));
}

void ZMRAcronameManager::recoveryForAcronamePorts(AcronamePorts ports, Update update,
                                                  Completion completion, PortObserver observer) {
    if (ports.empty()) {
        completion(false);
        return;
    }
    update(QStringLiteral("Preparing to put devices in recovery..."));
    runSequence(std::move(ports), std::move(update), std::move(completion), &Sequence::recovery,
                std::move(observer));
}
