#include "cli/StationSession.h"

#include "configurator/AC2Device.h"
#include "core/Alerts.h"
#include "core/Clock.h"
#include "core/Log.h"
#include "core/SimulatorAddress.h"

#include "cli/Interrupts.h"

#include <QCoreApplication>
#include <QEventLoop>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace cli {

// Shared with background workers that may outlive a blocking call.
struct SessionState {
    std::mutex mutex;
    std::condition_variable idle;
    int runningTasks = 0;
    // Ctrl-C: the sequence stops before its next port.
    std::atomic<bool> stopRequested = false;
};

StationSession::StationSession(const CliContext& context)
    : state_(std::make_shared<SessionState>()) {
    auto environment =
        ZMRAcronameManagerEnvironment::processDefaults(core::simulatorSocketFromEnvironment());
    environment.console = context.driverConsole();
    environment.parallelHubs = context.parallelHubs();
    // The verdict logs every failed port, with the step and the hub's answer besides.
    environment.portFailed = nullptr;
    std::weak_ptr<SessionState> weakState = state_;
    environment.stopRequested = [weakState] {
        const auto state = weakState.lock();
        return state && state->stopRequested.load();
    };
    environment.runInBackground = [weakState](dispatch::Task task) {
        auto state = weakState.lock();
        if (!state)
            return;
        {
            std::lock_guard lock(state->mutex);
            ++state->runningTasks;
        }
        dispatch::global([task = std::move(task), state] {
            task();
            std::lock_guard lock(state->mutex);
            if (--state->runningTasks == 0)
                state->idle.notify_all();
        });
    };
    manager_ = std::make_shared<ZMRAcronameManager>(std::move(environment));
}

StationSession::~StationSession() {
    manager_->disconnectAllHubs();
}

AC2Devices StationSession::refresh() {
    auto result = std::make_shared<std::optional<AC2Devices>>();
    QEventLoop loop;
    manager_->refreshAcronameDevices([result, &loop](AC2Devices entries) {
        dispatch::main([result, entries, &loop] {
            if (result->has_value())
                return;
            *result = entries;
            loop.quit();
        });
    });
    loop.exec();
    return result->value_or(AC2Devices{});
}

std::optional<AcronamePorts> StationSession::selectPorts(const AC2Devices& entries, bool all,
                                                         const std::vector<std::string>& names,
                                                         QString& error) const {
    AcronamePorts usable;
    for (const auto& entry : entries)
        if (entry->port() && entry->port()->hub())
            usable.push_back(entry->port());
    if (all)
        return usable;

    AcronamePorts chosen;
    for (const std::string& name : names) {
        const QString wanted = QString::fromStdString(name).toUpper();
        const auto match = std::find_if(usable.begin(), usable.end(),
                                        [&](const auto& port) { return port->name() == wanted; });
        if (match == usable.end()) {
            QStringList known;
            for (const auto& port : usable) known << port->name();
            error = QStringLiteral("no usable port %1 (the station has: %2)")
                        .arg(QString::fromStdString(name),
                             known.isEmpty() ? QStringLiteral("no hubs") : known.join(' '));
            return std::nullopt;
        }
        chosen.push_back(*match);
    }
    return chosen;
}

QStringList StationSession::enableDisabledPorts(const AcronamePorts& ports) {
    QStringList disabled;
    for (const auto& port : ports) {
        if (port->isEnabled() || !port->hub())
            continue;
        disabled << port->name();
        ZMRLogLevel1(
            QStringLiteral("Port %1 reads disabled; enabling it to reach the Mac behind it")
                .arg(port->name()));
        if (!port->hub()->enablePort(port->portID()))
            ZMRLogLevel0(
                QStringLiteral("Port %1 reads disabled and could not be enabled (result %2)")
                    .arg(port->name())
                    .arg(port->hub()->lastPortResult()));
    }
    // A Mac that gets power again needs a moment before its cable shows on the port.
    if (!disabled.isEmpty())
        core::Clock::system().sleepSeconds(1);
    return disabled;
}

std::shared_ptr<AcronameHub> StationSession::hubNamed(const QString& name) const {
    for (const auto& hub : manager_->hubs())
        if (hub->modelName() == name)
            return hub;
    return nullptr;
}

QStringList StationSession::portsLeftDisabled(const QStringList& names) {
    QStringList left;
    for (const QString& name : names) {
        const auto hub = hubNamed(name.section(':', 0, 0));
        const std::int64_t id = name.section(':', 1).toLongLong();
        // A hub that no longer answers cannot tell; its ports' failures say what was asked.
        if (!hub || hub->portEnabled(id).value_or(true))
            continue;
        if (hub->enablePort(id)) {
            ZMRLogLevel0(QStringLiteral("Port %1 was left disabled; enabled it again").arg(name));
            continue;
        }
        ZMRLogLevel0(QStringLiteral("Port %1 is left disabled: it could not be enabled (result %2)")
                         .arg(name)
                         .arg(hub->lastPortResult()));
        left << name;
    }
    return left;
}

PortVerdict StationSession::runUntilIdle(
    const AcronamePorts& ports, std::optional<PortProgress::Step> message, ProgressDisplay& display,
    const std::function<void(ZMRAcronameManager&, const PortObserver&,
                             const ZMRAcronameManager::Completion&)>& start) {
    QStringList names;
    for (const auto& port : ports) names << port->name();
    // The sequence's worker is counted until it ends, so nothing reports after the wait below.
    PortVerdict verdict(names, message);
    std::mutex verdictMutex;
    auto observer = [&](const PortProgress& event) {
        {
            std::lock_guard lock(verdictMutex);
            verdict.record(event);
        }
        display.port(event);
    };
    auto completion = [&](bool value) {
        {
            std::lock_guard lock(verdictMutex);
            verdict.recordCompletion(value);
        }
        display.completion(value);
    };
    // The first Ctrl-C lets the ports under way finish (a port is never left between its
    // disable and its enable) and stops before the next; a second leaves at once.
    Interrupts interrupts([this, &display] {
        if (state_->stopRequested.exchange(true))
            std::_Exit(exitInterrupted);
        display.headline(
            QStringLiteral("Stopping after the ports under way (Ctrl-C again to leave at once)"));
    });
    start(*manager_, observer, completion);
    {
        // The sequences never need the main loop; it is turned only for Ctrl-C, and the display
        // is redrawn every second meanwhile.
        std::unique_lock lock(state_->mutex);
        auto nextTick = std::chrono::steady_clock::now() + std::chrono::seconds(1);
        while (!state_->idle.wait_for(lock, std::chrono::milliseconds(100),
                                      [this] { return state_->runningTasks == 0; })) {
            lock.unlock();
            QCoreApplication::processEvents();
            if (std::chrono::steady_clock::now() >= nextTick) {
                display.tick();
                nextTick += std::chrono::seconds(1);
            }
            lock.lock();
        }
    }
    if (state_->stopRequested)
        verdict.recordInterrupted();
    return verdict;
}

PortVerdict StationSession::run(Sequence sequence, const AcronamePorts& ports,
                                ProgressDisplay& display) {
    auto update = [&display](const QString& text) { display.headline(text); };
    const PortProgress::Step message =
        sequence == Sequence::DFU ? PortProgress::Step::DfuMessage : PortProgress::Step::Reboot;
    return runUntilIdle(
        ports, message, display,
        [&](ZMRAcronameManager& manager, const PortObserver& observer,
            const ZMRAcronameManager::Completion& completion) {
            switch (sequence) {
                case Sequence::DFU:
                    manager.dfuModeForAcronamePorts(ports, update, completion, observer);
                    break;
                case Sequence::Restart:
                    manager.restartForAcronamePorts(ports, update, completion, observer);
                    break;
                case Sequence::Recovery:
                    manager.recoveryForAcronamePorts(ports, update, completion, observer);
                    break;
            }
        });
}

PortVerdict StationSession::runPowerMode(std::int64_t mode, const AcronamePorts& ports,
                                         ProgressDisplay& display) {
    return runUntilIdle(ports, std::nullopt, display,
                        [&](ZMRAcronameManager& manager, const PortObserver& observer,
                            const ZMRAcronameManager::Completion& completion) {
                            manager.setPowerMode(mode, ports, completion, observer);
                        });
}

}  // namespace cli
