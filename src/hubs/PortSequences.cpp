// The four timed sequences of ZMRAcronameManager. Each runs on one background worker from the
// power-mode pass to its last completion, sleeping there between steps, so the hub sees one
// command at a time per sequence.
#include "hubs/ZMRAcronameManager.h"

#include "core/Clock.h"
#include "core/NotificationCenter.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"
#include "core/Sounds.h"

#include <cmath>

namespace {

const QString kLastRequestedStayInFront = QStringLiteral("LastRequestedStayInFrontNotification");
const QString kCancelStayInFront = QStringLiteral("CancelStayInFrontNotification");
constexpr std::int64_t kDefaultRecoveryReboots = 6;

}  // namespace

// What one run of a sequence needs: the collaborators, and a weak link back to the manager for
// the refresh after a failure (the sequence never keeps the manager alive).
struct ZMRAcronameManager::Sequence {
    ZMRAcronameManagerEnvironment environment;
    std::weak_ptr<ZMRAcronameManager> manager;
    // Ports point at their hubs without owning them, and a refresh in the middle of a sequence
    // replaces the manager's hubs: the run keeps the hubs of its ports alive until it ends.
    std::vector<std::shared_ptr<AcronameHub>> hubs;

    Sequence(ZMRAcronameManagerEnvironment env, std::weak_ptr<ZMRAcronameManager> owner,
             const AcronamePorts& ports)
        : environment(std::move(env)), manager(std::move(owner)) {
        for (const auto& port : ports)
            if (port->hub()) hubs.push_back(port->hub()->shared_from_this());
    }

    core::Settings& settings() const { return *environment.settings; }
    core::Clock& clock() const { return *environment.clock; }

    // Whole seconds, truncated toward zero; a negative setting does not pause.
    void pauseSeconds(const char* key) const {
        const double seconds = settings().doubleForKey(key);
        clock().sleepSeconds(seconds > 0 ? static_cast<unsigned>(std::trunc(seconds)) : 0u);
    }

    void pauseMicroseconds(double seconds) const {
        clock().sleepMicroseconds(seconds > 0 ? static_cast<std::uint64_t>(seconds * 1000000.0) : 0u);
    }

    void reportFailure(const AcronamePort& port, const char* command) const {
        if (environment.portFailed) environment.portFailed(port, QString::fromLatin1(command));
    }

    void refresh() const {
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
    // all of them came back. Stops at the first port that cannot be disabled or re-enabled.
    bool powerModePass(std::int64_t mode, const AcronamePorts& ports) const {
        bool failed = false;
        std::int64_t cycled = 0;
        for (const auto& port : ports) {
            AcronameHub* hub = port->hub();
            if (!port->isConnected() || !hub) continue;
            const std::int64_t id = port->portID();
            if (hub->inPDModeForPort(id) && settings().boolForKey(core::keys::acronameSkipDFUSDPMode))
                continue;
            if (!hub->disablePort(id)) {
                reportFailure(*port, "disable");
                failed = true;
                break;
            }
            sendPowerMode(*hub, mode, id);
            clock().sleepSeconds(1);
            const bool enabled = hub->enablePort(id);
            if (!enabled) {
                environment.log(QString::asprintf("error enabling port: %li", long(id)));
                reportFailure(*port, "enable");
                failed = true;
            }
            pauseSeconds(core::keys::acronameDelayAfterSettingPowerMode);
            ++cycled;
            if (!enabled) break;
        }
        if (failed) return false;
        if (cycled > 0) pauseSeconds(core::keys::acronameDelayAfterSettingPowerMode);
        return true;
    }

    static bool rebootPort(const AcronamePort& port) {
        AcronameHub* hub = port.hub();
        return hub && hub->rebootPort(port.portID());
    }

    void dfu(const AcronamePorts& ports, const Update& update, const Completion& completion) const {
        if (!powerModePass(0, ports)) {
            completion(false);
            return;
        }
        update(QStringLiteral("Putting devices into DFU mode (sending DFU command)"));
        bool failed = false;
        for (const auto& port : ports) {
            if (!port->isConnected()) continue;
            update(QStringLiteral("Putting ports into DFU Mode..."));
            environment.notifications->post(kLastRequestedStayInFront);
            AcronameHub* hub = port->hub();
            const bool sent = hub && hub->dfuPort(port->portID());
            pauseSeconds(core::keys::acronameDelayAfterSendingDFUCommand);
            if (!sent) {
                reportFailure(*port, "DFU command");
                environment.notifications->post(kCancelStayInFront);
                environment.sounds->beep();
                failed = true;
                break;
            }
        }
        pauseSeconds(core::keys::acronameDelayAfterPuttingAllPortInDFUMode);
        if (failed) {
            update(QStringLiteral("Refreshing Devices..."));
            refresh();
            completion(false);
        }
        update(QStringLiteral("Finishing Up..."));
        if (!settings().boolForKey(core::keys::acronameSkipDFUSDPMode)) powerModePass(2, ports);
        completion(true);
    }

    void restart(const AcronamePorts& ports, const Update& update, const Completion& completion) const {
        if (!powerModePass(0, ports)) {
            completion(false);
            refresh();
            return;
        }
        bool failed = false;
        for (const auto& port : ports) {
            if (!rebootPort(*port)) {
                reportFailure(*port, "reboot");
                environment.sounds->beep();
                failed = true;
                completion(false);
                break;
            }
        }
        update(QStringLiteral("Finishing Up..."));
        pauseSeconds(core::keys::acronameDelayAfterRebootAllPorts);
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

    void recovery(const AcronamePorts& ports, const Update& update, const Completion& completion) const {
        if (!powerModePass(0, ports)) {
            completion(false);
            refresh();
            return;
        }
        pauseSeconds(core::keys::acronameDelayAfterSettingPowerMode);
        const double delay = settings().doubleForKey(core::keys::acronameRecoveryRebootDelay);
        const std::int64_t cycles = recoveryReboots();
        for (std::int64_t i = 1; i <= cycles; ++i) {
            update(QString::asprintf("Restarting %i of %li times", int(i), long(cycles)));
            for (const auto& port : ports) rebootPort(*port);
            pauseMicroseconds(delay);
        }
        update(QStringLiteral("Finishing Up..."));
        pauseSeconds(core::keys::acronameDelayAfterRebootAllPorts);
        completion(true);
    }
};

void ZMRAcronameManager::setPowerMode(std::int64_t mode, AcronamePorts ports, Completion completion) {
    Sequence sequence(environment_, weak_from_this(), ports);
    environment_.runInBackground([sequence, mode, ports = std::move(ports),
                                  completion = std::move(completion)] {
        completion(sequence.powerModePass(mode, ports));
    });
}

void ZMRAcronameManager::runSequence(AcronamePorts ports, Update update, Completion completion,
                                     SequenceStep step) {
    Sequence sequence(environment_, weak_from_this(), ports);
    environment_.runInBackground([sequence, step, ports = std::move(ports), update = std::move(update),
                                  completion = std::move(completion)] {
        (sequence.*step)(ports, update, completion);
    });
}

void ZMRAcronameManager::dfuModeForAcronamePorts(AcronamePorts ports, Update update,
                                                 Completion completion) {
    if (ports.empty()) {
        completion(false);
        return;
    }
    update(QStringLiteral("Putting devices into DFU mode (setting power role)"));
    runSequence(std::move(ports), std::move(update), std::move(completion), &Sequence::dfu);
}

void ZMRAcronameManager::restartForAcronamePorts(AcronamePorts ports, Update update,
                                                 Completion completion) {
    update(QStringLiteral("Preparing to restart devices..."));
    if (ports.empty()) {
        completion(false);
        return;
    }
    update(QStringLiteral("Restarting devices"));
    runSequence(std::move(ports), std::move(update), std::move(completion), &Sequence::restart);
}

void ZMRAcronameManager::recoveryForAcronamePorts(AcronamePorts ports, Update update,
                                                  Completion completion) {
    if (ports.empty()) {
        completion(false);
        return;
    }
    update(QStringLiteral("Preparing to put devices in recovery..."));
    runSequence(std::move(ports), std::move(update), std::move(completion), &Sequence::recovery);
}
