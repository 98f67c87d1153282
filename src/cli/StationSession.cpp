#include "cli/StationSession.h"

#include "configurator/AC2Device.h"
#include "core/Alerts.h"
#include "core/SimulatorAddress.h"

#include <QEventLoop>

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace cli {

// Shared with background workers that may outlive a blocking call.
struct SessionState {
    std::mutex mutex;
    std::condition_variable idle;
    int runningTasks = 0;
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

PortVerdict StationSession::runUntilIdle(
    const AcronamePorts& ports, ProgressDisplay& display,
    const std::function<void(ZMRAcronameManager&, const PortObserver&,
                             const ZMRAcronameManager::Completion&)>& start) {
    QStringList names;
    for (const auto& port : ports) names << port->name();
    // The sequence's worker is counted until it ends, so nothing reports after the wait below.
    PortVerdict verdict(names);
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
    start(*manager_, observer, completion);
    {
        // The sequences never need the main loop, so waiting here blocks nothing they use; the
        // display is redrawn every second meanwhile.
        std::unique_lock lock(state_->mutex);
        while (!state_->idle.wait_for(lock, std::chrono::seconds(1),
                                      [this] { return state_->runningTasks == 0; })) {
            lock.unlock();
            display.tick();
            lock.lock();
        }
    }
    return verdict;
}

PortVerdict StationSession::run(Sequence sequence, const AcronamePorts& ports,
                                ProgressDisplay& display) {
    auto update = [&display](const QString& text) { display.headline(text); };
    return runUntilIdle(
        ports, display,
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
    return runUntilIdle(ports, display,
                        [&](ZMRAcronameManager& manager, const PortObserver& observer,
                            const ZMRAcronameManager::Completion& completion) {
                            manager.setPowerMode(mode, ports, completion, observer);
                        });
}

}  // namespace cli
