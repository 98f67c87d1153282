#include "cli/StationSession.h"

#include "configurator/AC2Device.h"
#include "core/Alerts.h"
#include "core/SimulatorAddress.h"

#include <QElapsedTimer>
#include <QEventLoop>

#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <mutex>

namespace cli {

// Shared with background workers that may outlive a blocking call.
struct SessionState {
    std::mutex mutex;
    QStringList failedPorts;
    std::condition_variable idle;
    int runningTasks = 0;
    std::atomic<bool> lastCompletion{false};
    bool statusOnTerminal = isatty(STDOUT_FILENO);
    bool statusLineOpen = false;
    QElapsedTimer started;

    // On a terminal one line keeps changing, with the time the run has taken so far; elsewhere
    // every text is a line of its own, exactly as the sequence gave it.
    void showStatus(const QString& text) {
        std::lock_guard lock(mutex);
        if (statusOnTerminal) {
            if (!started.isValid())
                started.start();
            std::printf("\r\033[K[%3llds] %s", static_cast<long long>(started.elapsed() / 1000),
                        qPrintable(text));
            statusLineOpen = true;
        } else {
            std::printf("%s\n", qPrintable(text));
        }
        std::fflush(stdout);
    }

    void closeStatus() {
        std::lock_guard lock(mutex);
        if (statusLineOpen)
            std::printf("\n");
        statusLineOpen = false;
        std::fflush(stdout);
    }
};

StationSession::StationSession(const CliContext& context) : state_(std::make_shared<SessionState>()) {
    auto environment = ZMRAcronameManagerEnvironment::processDefaults(core::simulatorSocketFromEnvironment());
    environment.console = context.driverConsole();
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
    environment.portFailed = [weakState](const AcronamePort& port, const QString& command) {
        if (auto state = weakState.lock()) {
            std::lock_guard lock(state->mutex);
            state->failedPorts << QStringLiteral("%1 (%2)").arg(port.name(), command);
        }
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

bool StationSession::runUntilIdle(const std::function<void(ZMRAcronameManager&)>& start) {
    start(*manager_);
    {
        // The sequences never need the main loop, so waiting here blocks nothing they use.
        std::unique_lock lock(state_->mutex);
        state_->idle.wait(lock, [this] { return state_->runningTasks == 0; });
    }
    state_->closeStatus();
    return state_->lastCompletion;
}

bool StationSession::run(Sequence sequence, const AcronamePorts& ports) {
    auto state = state_;
    auto update = [state](const QString& text) { state->showStatus(text); };
    auto completion = [state](bool ok) { state->lastCompletion = ok; };
    return runUntilIdle([&](ZMRAcronameManager& manager) {
        switch (sequence) {
            case Sequence::DFU:
                manager.dfuModeForAcronamePorts(ports, update, completion);
                break;
            case Sequence::Restart:
                manager.restartForAcronamePorts(ports, update, completion);
                break;
            case Sequence::Recovery:
                manager.recoveryForAcronamePorts(ports, update, completion);
                break;
        }
    });
}

bool StationSession::runPowerMode(std::int64_t mode, const AcronamePorts& ports) {
    auto state = state_;
    return runUntilIdle([&](ZMRAcronameManager& manager) {
        manager.setPowerMode(mode, ports, [state](bool ok) { state->lastCompletion = ok; });
    });
}

QStringList StationSession::failedPorts() const {
    std::lock_guard lock(state_->mutex);
    return state_->failedPorts;
}

}  // namespace cli
