#include "hubs/stem/SdkBackend.h"

#include <BrainStem2/BrainStem-all.h>

#include <array>

namespace stem {

namespace {

namespace BS = Acroname::BrainStem;

::linkType sdkLinkType(LinkType type) {
    switch (type) {
        case LinkType::USB:
            return USB;
        case LinkType::TCPIP:
            return TCPIP;
        case LinkType::Invalid:
            break;
    }
    return INVALID;
}

class SdkPort final : public PortClass {
  public:
    explicit SdkPort(BS::PortClass& entity) : e_(entity) {}
    aErr setEnabled(std::uint8_t v) override { return e_.setEnabled(v); }
    aErr getEnabled(std::uint8_t* v) override { return e_.getEnabled(v); }
    aErr setPowerMode(std::uint8_t v) override { return e_.setPowerMode(v); }
    aErr getPowerMode(std::uint8_t* v) override { return e_.getPowerMode(v); }
    aErr setPowerLimit(std::uint32_t v) override { return e_.setPowerLimit(v); }
    aErr getVbusVoltage(std::int32_t* v) override { return e_.getVbusVoltage(v); }
    aErr getVbusCurrent(std::int32_t* v) override { return e_.getVbusCurrent(v); }
    aErr getVconnVoltage(std::int32_t* v) override { return e_.getVconnVoltage(v); }
    aErr getVconnCurrent(std::int32_t* v) override { return e_.getVconnCurrent(v); }

  private:
    BS::PortClass& e_;
};

class SdkPowerDelivery final : public PowerDeliveryClass {
  public:
    SdkPowerDelivery(BS::PowerDeliveryClass& entity, ModuleLogFunction log)
        : e_(entity), log_(log) {}
    aErr setPowerRole(std::uint8_t v) override { return e_.setPowerRole(v); }
    aErr getPowerRole(std::uint8_t* v) override { return e_.getPowerRole(v); }
    aErr setOverride(std::uint32_t v) override { return e_.setOverride(v); }
    aErr getCableOrientation(std::uint8_t* v) override { return e_.getCableOrientation(v); }
    aErr setUEIBytes(std::uint8_t option, const std::uint8_t* buffer, std::size_t length) override {
#if TARVEL_BRAINSTEM_HAS_SET_UEI_BYTES
        return e_.setUEIBytes(option, buffer, length);
#else
        // Older SDKs can read these bytes but not send them: no reboot or DFU message.
        static_cast<void>(option);
        static_cast<void>(buffer);
        static_cast<void>(length);
        log_("This BrainStem2 SDK cannot send power-delivery messages (setUEIBytes needs SDK "
             "2.10 or later); rebuild the hub library module against a newer SDK to reboot "
             "Macs or put them into DFU mode");
        return aErrUnimplemented;
#endif
    }

  private:
    BS::PowerDeliveryClass& e_;
    ModuleLogFunction log_;
};

class SdkSystem final : public SystemClass {
  public:
    explicit SdkSystem(BS::SystemClass& entity) : e_(entity) {}
    aErr save() override { return e_.save(); }
    aErr reset() override { return e_.reset(); }
    aErr setLED(std::uint8_t v) override { return e_.setLED(v); }
    aErr getLED(std::uint8_t* v) override { return e_.getLED(v); }
    aErr getVersion(std::uint32_t* v) override { return e_.getVersion(v); }
    aErr setPowerLimitMax(std::uint32_t v) override { return e_.setPowerLimitMax(v); }
    aErr getPowerLimitMax(std::uint32_t* v) override { return e_.getPowerLimitMax(v); }
    aErr getPowerLimit(std::uint32_t* v) override { return e_.getPowerLimit(v); }
    aErr getInputPowerSource(std::uint8_t* v) override { return e_.getInputPowerSource(v); }

  private:
    BS::SystemClass& e_;
};

// The library object first: the entity adapters hold references into it. Port entities belong
// to the hub's USB system entity; the power-delivery and system entities to the module itself.
class SdkModule final : public Module {
  public:
    SdkModule(std::uint8_t address, bool autoNetworking, std::uint8_t model, ModuleLogFunction log)
        : hub_(address, autoNetworking, model),
          ports_{SdkPort(hub_.hub.port[0]), SdkPort(hub_.hub.port[1]), SdkPort(hub_.hub.port[2]),
                 SdkPort(hub_.hub.port[3]), SdkPort(hub_.hub.port[4]), SdkPort(hub_.hub.port[5]),
                 SdkPort(hub_.hub.port[6]), SdkPort(hub_.hub.port[7])},
          pds_{SdkPowerDelivery(hub_.pd[0], log), SdkPowerDelivery(hub_.pd[1], log),
               SdkPowerDelivery(hub_.pd[2], log), SdkPowerDelivery(hub_.pd[3], log),
               SdkPowerDelivery(hub_.pd[4], log), SdkPowerDelivery(hub_.pd[5], log),
               SdkPowerDelivery(hub_.pd[6], log), SdkPowerDelivery(hub_.pd[7], log)},
          system_(hub_.system) {}

    aErr discoverAndConnect(LinkType type, std::uint32_t serialNumber) override {
        return hub_.discoverAndConnect(sdkLinkType(type), serialNumber);
    }
    bool isConnected() override { return hub_.isConnected(); }
    aErr disconnect() override { return hub_.disconnect(); }
    PortClass& port(std::uint8_t index) override { return ports_.at(index); }
    PowerDeliveryClass& pd(std::uint8_t index) override { return pds_.at(index); }
    SystemClass& system() override { return system_; }

  private:
    aUSBHub3c hub_;
    std::array<SdkPort, kEntityCount> ports_;
    std::array<SdkPowerDelivery, kEntityCount> pds_;
    SdkSystem system_;
};

bool moduleFound(const linkSpec* spec, bool* success, void* reference) {
    const auto& callback = *static_cast<const ModuleFoundProc*>(reference);
    LinkSpec copy;
    copy.type = spec->type == TCPIP ? LinkType::TCPIP
                                    : (spec->type == USB ? LinkType::USB : LinkType::Invalid);
    copy.serial_num = spec->serial_num;
    copy.module = spec->module;
    copy.router = spec->router;
    copy.router_serial_num = spec->router_serial_num;
    copy.model = spec->model;
    copy.usb_id = spec->t.usb.usb_id;
    return callback(copy, *success);
}

}  // namespace

SdkBackend::SdkBackend(ModuleLogFunction log) : log_(log) {}

std::uint8_t SdkBackend::aDiscovery_EnumerateModules(LinkType type, const ModuleFoundProc& callback,
                                                     std::uint32_t networkInterface) {
#if TARVEL_BRAINSTEM_DISCOVERY_TAKES_INTERFACE
    return ::aDiscovery_EnumerateModules(sdkLinkType(type), moduleFound,
                                         const_cast<ModuleFoundProc*>(&callback), networkInterface);
#else
    // Older SDKs search the local host only, which is what the interface argument asks for.
    static_cast<void>(networkInterface);
    return ::aDiscovery_EnumerateModules(sdkLinkType(type), moduleFound,
                                         const_cast<ModuleFoundProc*>(&callback));
#endif
}

std::unique_ptr<Module> SdkBackend::createUSBHub3c(std::uint8_t address, bool autoNetworking,
                                                   std::uint8_t model) {
    return std::make_unique<SdkModule>(address, autoNetworking, model, log_);
}

void SdkBackend::aVersion_ParseString(std::uint32_t build, char* buffer, std::size_t length) {
    ::aVersion_ParseString(build, buffer, length);
}

const char* SdkBackend::aError_GetErrorDescription(aErr error) {
#if TARVEL_BRAINSTEM_HAS_ERROR_DESCRIPTION
    return ::aError_GetErrorDescription(static_cast<::aErr>(error));
#else
    return ::aError_GetErrorText(static_cast<::aErr>(error));
#endif
}

}  // namespace stem
