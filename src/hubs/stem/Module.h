#pragma once

#include "hubs/stem/Types.h"

#include <cstddef>
#include <cstdint>

namespace stem {

// The entities of one USBHub3c, mirroring the library's entity classes call for call. An entity
// object is owned by its module and addressed by index, as `hub.port[p]` and `hub.pd[p]` are.

class PortClass {
public:
    virtual ~PortClass() = default;
    virtual aErr setEnabled(std::uint8_t enable) = 0;
    virtual aErr getEnabled(std::uint8_t* enabled) = 0;
    virtual aErr setPowerMode(std::uint8_t mode) = 0;
    virtual aErr getPowerMode(std::uint8_t* mode) = 0;
    virtual aErr setPowerLimit(std::uint32_t milliwatts) = 0;
    virtual aErr getVbusVoltage(std::int32_t* microvolts) = 0;
    virtual aErr getVbusCurrent(std::int32_t* microamperes) = 0;
    virtual aErr getVconnVoltage(std::int32_t* microvolts) = 0;
    virtual aErr getVconnCurrent(std::int32_t* microamperes) = 0;
};

class PowerDeliveryClass {
public:
    virtual ~PowerDeliveryClass() = default;
    virtual aErr setPowerRole(std::uint8_t role) = 0;
    virtual aErr getPowerRole(std::uint8_t* role) = 0;
    virtual aErr setOverride(std::uint32_t overrides) = 0;
    virtual aErr getCableOrientation(std::uint8_t* orientation) = 0;
    // Lives on the library's entity base class; only the power-delivery entities are sent it.
    virtual aErr setUEIBytes(std::uint8_t option, const std::uint8_t* buffer,
                             std::size_t length) = 0;
};

class SystemClass {
public:
    virtual ~SystemClass() = default;
    virtual aErr save() = 0;
    virtual aErr reset() = 0;
    virtual aErr setLED(std::uint8_t on) = 0;
    virtual aErr getLED(std::uint8_t* on) = 0;
    virtual aErr getVersion(std::uint32_t* build) = 0;
    virtual aErr setPowerLimitMax(std::uint32_t milliwatts) = 0;
    virtual aErr getPowerLimitMax(std::uint32_t* milliwatts) = 0;
    virtual aErr getPowerLimit(std::uint32_t* milliwatts) = 0;
    virtual aErr getInputPowerSource(std::uint8_t* source) = 0;
};

// One library module object (an `aUSBHub3c`). Each hub gets its own, so several hubs can be
// open at once. Calls block the calling thread; a module is not required to serialise them.
class Module {
public:
    static constexpr std::uint8_t kEntityCount = 8;

    virtual ~Module() = default;

    // serialNumber 0 connects to the first module found.
    virtual aErr discoverAndConnect(LinkType type, std::uint32_t serialNumber) = 0;
    virtual bool isConnected() = 0;
    virtual aErr disconnect() = 0;

    // index 0 to 7; anything else is the caller's error.
    virtual PortClass& port(std::uint8_t index) = 0;
    virtual PowerDeliveryClass& pd(std::uint8_t index) = 0;
    virtual SystemClass& system() = 0;
};

}  // namespace stem
