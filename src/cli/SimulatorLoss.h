#pragma once

#include <QString>

#include <functional>
#include <memory>
#include <optional>

namespace core {
class SimulatorConnection;
}

namespace cli {

// Hears tarvel-sim close its socket under a command that runs until something happens: without
// it, such a command would wait for events that can no longer come.
class SimulatorLoss {
  public:
    // Without a simulator nothing is watched. `lost` is called on the main loop, once.
    SimulatorLoss(const std::optional<QString>& socket, std::function<void()> lost);
    ~SimulatorLoss();
    SimulatorLoss(const SimulatorLoss&) = delete;
    SimulatorLoss& operator=(const SimulatorLoss&) = delete;

  private:
    std::unique_ptr<core::SimulatorConnection> connection_;
};

// The line a command prints to standard error when the simulator went away under it.
void reportSimulatorLost(const char* command, const QString& consequence);

}  // namespace cli
