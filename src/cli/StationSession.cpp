#include "cli/StationSession.h"

#include "configurator/AC2Device.h"
#include "core/Clock.h"
#include "core/SimulatorAddress.h"

#include "cli/Interrupts.h"

#include <QCoreApplication>
#include <QEventLoop>

#include <algorithm>
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
    wereDisabled_ = station::PortRun::enableDisabledPorts(ports, core::Clock::system());
    return wereDisabled_;
}

station::PortVerdict StationSession::runToEnd(station::PortRun& run, ProgressDisplay& display) {
    {
        // The first Ctrl-C lets the ports under way finish (a port is never left between its
        // disable and its enable) and stops before the next; a second leaves at once.
        Interrupts interrupts([this, &display] {
            if (state_->stopRequested.exchange(true))
                std::_Exit(exitInterrupted);
            display.headline(QStringLiteral(
                "Stopping after the ports under way (Ctrl-C again to leave at once)"));
        });
        run.start(*manager_, {[&display](const QString& text) { display.headline(text); },
                              [&display](const PortProgress& event) { display.port(event); },
                              [&display](bool value) { display.completion(value); }});
        // The sequence's worker is counted until it ends, so nothing reports after this wait.
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
    return run.finish(manager_->hubs(), state_->stopRequested);
}

station::PortVerdict StationSession::run(Sequence sequence, const AcronamePorts& ports,
                                         ProgressDisplay& display) {
    station::PortRun run(sequence, ports, wereDisabled_);
    return runToEnd(run, display);
}

station::PortVerdict StationSession::runPowerMode(std::int64_t mode, const AcronamePorts& ports,
                                                  ProgressDisplay& display) {
    station::PortRun run(mode, ports, wereDisabled_);
    return runToEnd(run, display);
}

}  // namespace cli
