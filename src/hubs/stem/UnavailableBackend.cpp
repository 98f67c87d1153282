#include "hubs/stem/UnavailableBackend.h"

#include "core/Log.h"

#include <atomic>

namespace stem {

namespace {

class NoPort final : public PortClass {
public:
    aErr setEnabled(std::uint8_t) override { return aErrConnection; }
    aErr getEnabled(std::uint8_t*) override { return aErrConnection; }
    aErr setPowerMode(std::uint8_t) override { return aErrConnection; }
    aErr getPowerMode(std::uint8_t*) override { return aErrConnection; }
    aErr setPowerLimit(std::uint32_t) override { return aErrConnection; }
    aErr getVbusVoltage(std::int32_t*) override { return aErrConnection; }
    aErr getVbusCurrent(std::int32_t*) override { return aErrConnection; }
    aErr getVconnVoltage(std::int32_t*) override { return aErrConnection; }
    aErr getVconnCurrent(std::int32_t*) override { return aErrConnection; }
};

class NoPowerDelivery final : public PowerDeliveryClass {
public:
    aErr setPowerRole(std::uint8_t) override { return aErrConnection; }
    aErr getPowerRole(std::uint8_t*) override { return aErrConnection; }
    aErr setOverride(std::uint32_t) override { return aErrConnection; }
    aErr getCableOrientation(std::uint8_t*) override { return aErrConnection; }
    aErr setUEIBytes(std::uint8_t, const std::uint8_t*, std::size_t) override {
        return aErrConnection;
    }
};

class NoSystem final : public SystemClass {
public:
    aErr save() override { return aErrConnection; }
    aErr reset() override { return aErrConnection; }
    aErr setLED(std::uint8_t) override { return aErrConnection; }
    aErr getLED(std::uint8_t*) override { return aErrConnection; }
    aErr getVersion(std::uint32_t*) override { return aErrConnection; }
    aErr setPowerLimitMax(std::uint32_t) override { return aErrConnection; }
    aErr getPowerLimitMax(std::uint32_t*) override { return aErrConnection; }
    aErr getPowerLimit(std::uint32_t*) override { return aErrConnection; }
    aErr getInputPowerSource(std::uint8_t*) override { return aErrConnection; }
};

// Entities are stateless, so one of each serves every index.
class NoModule final : public Module {
public:
    aErr discoverAndConnect(LinkType, std::uint32_t) override { return aErrNotFound; }
    bool isConnected() override { return false; }
    aErr disconnect() override { return aErrConnection; }
    PortClass& port(std::uint8_t) override { return port_; }
    PowerDeliveryClass& pd(std::uint8_t) override { return pd_; }
    SystemClass& system() override { return system_; }

private:
    NoPort port_;
    NoPowerDelivery pd_;
    NoSystem system_;
};

// Refreshes run discovery again and again; one line is enough to explain the empty hub list.
std::atomic<bool> toldOnce{false};

}  // namespace

UnavailableBackend::UnavailableBackend(QString reason) : reason_(std::move(reason)) {}

std::uint8_t UnavailableBackend::aDiscovery_EnumerateModules(LinkType, const ModuleFoundProc&,
                                                             std::uint32_t) {
    if (!toldOnce.exchange(true)) {
        ZMRLogLevel1(reason_.isEmpty()
                         ? QStringLiteral("No hub library module: no Acroname hubs can be found "
                                          "(use --simulate for the station simulator)")
                         : reason_);
    }
    return 0;
}

std::unique_ptr<Module> UnavailableBackend::createUSBHub3c(std::uint8_t, bool, std::uint8_t) {
    return std::make_unique<NoModule>();
}

}  // namespace stem
