#include "CountingBackend.h"

#include <array>

namespace bench {
namespace {

// Each wrapper forwards to the real entity after counting the call.
#define COUNTED(call) (owner_.count(), inner_.call)

class CountingPort final : public stem::PortClass {
public:
    CountingPort(CountingBackend& owner, stem::PortClass& inner) : owner_(owner), inner_(inner) {}
    stem::aErr setEnabled(std::uint8_t v) override { return COUNTED(setEnabled(v)); }
    stem::aErr getEnabled(std::uint8_t* v) override { return COUNTED(getEnabled(v)); }
    stem::aErr setPowerMode(std::uint8_t v) override { return COUNTED(setPowerMode(v)); }
    stem::aErr getPowerMode(std::uint8_t* v) override { return COUNTED(getPowerMode(v)); }
    stem::aErr setPowerLimit(std::uint32_t v) override { return COUNTED(setPowerLimit(v)); }
    stem::aErr getVbusVoltage(std::int32_t* v) override { return COUNTED(getVbusVoltage(v)); }
    stem::aErr getVbusCurrent(std::int32_t* v) override { return COUNTED(getVbusCurrent(v)); }
    stem::aErr getVconnVoltage(std::int32_t* v) override { return COUNTED(getVconnVoltage(v)); }
    stem::aErr getVconnCurrent(std::int32_t* v) override { return COUNTED(getVconnCurrent(v)); }

private:
    CountingBackend& owner_;
    stem::PortClass& inner_;
};

class CountingPowerDelivery final : public stem::PowerDeliveryClass {
public:
    CountingPowerDelivery(CountingBackend& owner, stem::PowerDeliveryClass& inner) : owner_(owner), inner_(inner) {}
    stem::aErr setPowerRole(std::uint8_t v) override { return COUNTED(setPowerRole(v)); }
    stem::aErr getPowerRole(std::uint8_t* v) override { return COUNTED(getPowerRole(v)); }
    stem::aErr setOverride(std::uint32_t v) override { return COUNTED(setOverride(v)); }
    stem::aErr getCableOrientation(std::uint8_t* v) override { return COUNTED(getCableOrientation(v)); }
    stem::aErr setUEIBytes(std::uint8_t option, const std::uint8_t* buffer, std::size_t length) override {
        return COUNTED(setUEIBytes(option, buffer, length));
    }

private:
    CountingBackend& owner_;
    stem::PowerDeliveryClass& inner_;
};

class CountingSystem final : public stem::SystemClass {
public:
    CountingSystem(CountingBackend& owner, stem::SystemClass& inner) : owner_(owner), inner_(inner) {}
    stem::aErr save() override { return COUNTED(save()); }
    stem::aErr reset() override { return COUNTED(reset()); }
    stem::aErr setLED(std::uint8_t v) override { return COUNTED(setLED(v)); }
    stem::aErr getLED(std::uint8_t* v) override { return COUNTED(getLED(v)); }
    stem::aErr getVersion(std::uint32_t* v) override { return COUNTED(getVersion(v)); }
    stem::aErr setPowerLimitMax(std::uint32_t v) override { return COUNTED(setPowerLimitMax(v)); }
    stem::aErr getPowerLimitMax(std::uint32_t* v) override { return COUNTED(getPowerLimitMax(v)); }
    stem::aErr getPowerLimit(std::uint32_t* v) override { return COUNTED(getPowerLimit(v)); }
    stem::aErr getInputPowerSource(std::uint8_t* v) override { return COUNTED(getInputPowerSource(v)); }

private:
    CountingBackend& owner_;
    stem::SystemClass& inner_;
};

class CountingModule final : public stem::Module {
public:
    CountingModule(CountingBackend& owner, std::unique_ptr<stem::Module> inner)
        : owner_(owner), inner_(*inner), module_(std::move(inner)), system_(owner, inner_.system()) {
        for (std::uint8_t i = 0; i < kEntityCount; ++i) {
            ports_[i] = std::make_unique<CountingPort>(owner, inner_.port(i));
            pds_[i] = std::make_unique<CountingPowerDelivery>(owner, inner_.pd(i));
        }
    }
    stem::aErr discoverAndConnect(stem::LinkType type, std::uint32_t serial) override {
        return COUNTED(discoverAndConnect(type, serial));
    }
    bool isConnected() override { return COUNTED(isConnected()); }
    stem::aErr disconnect() override { return COUNTED(disconnect()); }
    stem::PortClass& port(std::uint8_t index) override { return *ports_.at(index); }
    stem::PowerDeliveryClass& pd(std::uint8_t index) override { return *pds_.at(index); }
    stem::SystemClass& system() override { return system_; }

private:
    CountingBackend& owner_;
    stem::Module& inner_;
    std::unique_ptr<stem::Module> module_;
    CountingSystem system_;
    std::array<std::unique_ptr<CountingPort>, kEntityCount> ports_;
    std::array<std::unique_ptr<CountingPowerDelivery>, kEntityCount> pds_;
};

#undef COUNTED

}  // namespace

std::uint8_t CountingBackend::aDiscovery_EnumerateModules(stem::LinkType type,
                                                          const stem::ModuleFoundProc& callback,
                                                          std::uint32_t networkInterface) {
    count();
    return inner_->aDiscovery_EnumerateModules(type, callback, networkInterface);
}

std::unique_ptr<stem::Module> CountingBackend::createUSBHub3c(std::uint8_t address, bool autoNetworking,
                                                              std::uint8_t model) {
    return std::make_unique<CountingModule>(*this, inner_->createUSBHub3c(address, autoNetworking, model));
}

void CountingBackend::aVersion_ParseString(std::uint32_t build, char* buffer, std::size_t length) {
    inner_->aVersion_ParseString(build, buffer, length);
}

const char* CountingBackend::aError_GetErrorDescription(stem::aErr error) {
    return inner_->aError_GetErrorDescription(error);
}

}  // namespace bench
