#pragma once

#include "hubs/stem/Backend.h"

#include <QString>

#include <atomic>
#include <memory>

namespace core {
class SimulatorConnection;
}

namespace stem {

// The hub library played by tarvel-sim: every library call is one "stem.*" request whose reply
// carries the library's result code and value. Hubs are named to the simulator by serial number.
class SimulatorBackend final : public Backend {
  public:
    explicit SimulatorBackend(QString socketPath);
    explicit SimulatorBackend(std::shared_ptr<core::SimulatorConnection> connection);
    ~SimulatorBackend() override;

    std::uint8_t aDiscovery_EnumerateModules(LinkType type, const ModuleFoundProc& callback,
                                             std::uint32_t networkInterface) override;
    std::unique_ptr<Module> createUSBHub3c(std::uint8_t address, bool autoNetworking,
                                           std::uint8_t model) override;

  private:
    std::shared_ptr<core::SimulatorConnection> connection_;
    std::atomic<bool> toldUnreachable_{false};
};

}  // namespace stem
