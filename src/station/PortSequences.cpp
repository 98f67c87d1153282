// The message sequences of ZMRAcronameManager: DFU, restart and recovery, each the power-mode
// pass of SequenceRun and then its messages, on the run's one worker.
#include "station/SequenceRun.h"

#include "core/NotificationCenter.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"
#include "core/Sounds.h"

#include <atomic>

namespace {

const QString kLastRequestedStayInFront = QStringLiteral("LastRequestedStayInFrontNotification");
const QString kCancelStayInFront = QStringLiteral("CancelStayInFrontNotification");
constexpr std::int64_t kDefaultRecoveryReboots = 6;

}  // namespace

// A run with a weak link back to the manager for the refresh after a failure (the sequence never
// keeps the manager alive).
struct ZMRAcronameManager::Sequence : SequenceRun {
    std::weak_ptr<ZMRAcronameManager> manager;

    Sequence(ZMRAcronameManagerEnvironment environment, std::weak_ptr<ZMRAcronameManager> owner,
             const AcronamePorts& ports, PortObserver observer, bool parallel)
        : SequenceRun(std::move(environment), ports, std::move(observer), parallel),
          manager(std::move(owner)) {}

    void refresh() const {
        if (!environment_.refreshAfterFailure)
            return;
        if (auto strong = manager.lock())
            strong->refreshAcronameDevices([](AC2Devices) {});
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

    void dfuLane(const AcronamePorts& ports, const Update& update,
                 std::atomic<bool>& failed) const {
        for (const auto& port : ports) {
            if (!port->isConnected())
                continue;
            const bool begun = beginPort(failed, [&] {
                update(QStringLiteral("Putting ports into DFU Mode..."));
                environment_.notifications->post(kLastRequestedStayInFront);
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
                environment_.notifications->post(kCancelStayInFront);
                environment_.sounds->beep();
                return;
            }
        }
    }

    void restart(const AcronamePorts& ports, const Update& update,
                 const Completion& completion) const {
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
                    environment_.sounds->beep();
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
        const std::int64_t times =
            settings().integerForKey(core::keys::acronameRecoveryRebootTimes);
        return times >= 1 && times <= 10 ? times : kDefaultRecoveryReboots;
    }

    // Reboot failures do not stop a recovery; a port is done when its last reboot went out.
    void recovery(const AcronamePorts& ports, const Update& update,
                  const Completion& completion) const {
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
    SequenceRun run(environment_, ports, std::move(observer), parallelHubs());
    environment_.runInBackground(
        [run, mode, ports = std::move(ports), completion = std::move(completion)] {
            completion(run.powerModePass(mode, ports, true));
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
