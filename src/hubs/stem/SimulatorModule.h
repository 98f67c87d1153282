#pragma once

#include "hubs/stem/Module.h"

#include <QJsonObject>

#include <array>
#include <atomic>
#include <memory>
#include <optional>

namespace core {
class SimulatorConnection;
}

namespace stem {

class SimulatorModule;

class SimulatorPort final : public PortClass {
  public:
    SimulatorPort(SimulatorModule& module, std::uint8_t index) : module_(module), index_(index) {}
    aErr setEnabled(std::uint8_t enable) override;
    aErr getEnabled(std::uint8_t* enabled) override;
    aErr setPowerMode(std::uint8_t mode) override;
    aErr getPowerMode(std::uint8_t* mode) override;
    aErr setPowerLimit(std::uint32_t milliwatts) override;
    aErr getVbusVoltage(std::int32_t* microvolts) override;
    aErr getVbusCurrent(std::int32_t* microamperes) override;
    aErr getVconnVoltage(std::int32_t* microvolts) override;
    aErr getVconnCurrent(std::int32_t* microamperes) override;

  private:
    SimulatorModule& module_;
    std::uint8_t index_;
};

class SimulatorPowerDelivery final : public PowerDeliveryClass {
  public:
    SimulatorPowerDelivery(SimulatorModule& module, std::uint8_t index)
        : module_(module), index_(index) {}
    aErr setPowerRole(std::uint8_t role) override;
    aErr getPowerRole(std::uint8_t* role) override;
    aErr setOverride(std::uint32_t overrides) override;
    aErr getCableOrientation(std::uint8_t* orientation) override;
    aErr setUEIBytes(std::uint8_t option, const std::uint8_t* buffer, std::size_t length) override;

  private:
    SimulatorModule& module_;
    std::uint8_t index_;
};

class SimulatorSystem final : public SystemClass {
  public:
    explicit SimulatorSystem(SimulatorModule& module) : module_(module) {}
    aErr save() override;
    aErr reset() override;
    aErr setLED(std::uint8_t on) override;
    aErr getLED(std::uint8_t* on) override;
    aErr getVersion(std::uint32_t* build) override;
    aErr setPowerLimitMax(std::uint32_t milliwatts) override;
    aErr getPowerLimitMax(std::uint32_t* milliwatts) override;
    aErr getPowerLimit(std::uint32_t* milliwatts) override;
    aErr getInputPowerSource(std::uint8_t* source) override;

  private:
    SimulatorModule& module_;
};

// One hub module over the simulator. Each connect opens a link of its own, which the simulator
// breaks on disconnect or when the hub drops off the bus; calls on a broken link fail as they
// would on the wire, until the module connects again.
class SimulatorModule final : public Module {
  public:
    explicit SimulatorModule(std::shared_ptr<core::SimulatorConnection> connection);

    aErr discoverAndConnect(LinkType type, std::uint32_t serialNumber) override;
    bool isConnected() override;
    aErr disconnect() override;
    PortClass& port(std::uint8_t index) override;
    PowerDeliveryClass& pd(std::uint8_t index) override;
    SystemClass& system() override { return system_; }

    // One entity call: "port.setEnabled" and the like. value receives a getter's answer.
    aErr call(const char* method, std::optional<std::uint8_t> index, QJsonObject arguments,
              qint64* value = nullptr);

  private:
    std::shared_ptr<core::SimulatorConnection> connection_;
    std::atomic<std::uint32_t> serial_{0};
    std::atomic<std::uint64_t> link_{0};
    std::atomic<bool> linked_{false};
    // The ninth entity answers for indexes past the end, which the simulator refuses.
    std::array<std::unique_ptr<SimulatorPort>, kEntityCount + 1> ports_;
    std::array<std::unique_ptr<SimulatorPowerDelivery>, kEntityCount + 1> pds_;
    SimulatorSystem system_;
};

}  // namespace stem
