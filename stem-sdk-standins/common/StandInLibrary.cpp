// Just enough of a BrainStem2 library behind the stand-in headers for a module built against
// them to load and to run discovery, which finds no hubs. Every entity call the headers declare is
// defined, since a package links with immediate binding (-z now) and a module then loads only
// when all it calls is there; with no hub found nothing reaches them, and each answers that no
// hub is connected rather than pretend to drive one.

#include <BrainStem2/BrainStem-all.h>

#include <cstdio>

namespace Acroname::BrainStem {

#if STANDIN_BRAINSTEM_MINOR >= 10
aErr EntityClass::setUEIBytes(const uint8_t, const uint8_t*, const size_t) { return aErrConnection; }
#endif
aErr EntityClass::getUEIBytes(const uint8_t, uint8_t*, const size_t, size_t*) { return aErrConnection; }

aErr PortClass::setEnabled(const uint8_t) { return aErrConnection; }
aErr PortClass::getEnabled(uint8_t*) { return aErrConnection; }
aErr PortClass::setPowerMode(const uint8_t) { return aErrConnection; }
aErr PortClass::getPowerMode(uint8_t*) { return aErrConnection; }
aErr PortClass::setPowerLimit(const uint32_t) { return aErrConnection; }
aErr PortClass::getVbusVoltage(int32_t*) { return aErrConnection; }
aErr PortClass::getVbusCurrent(int32_t*) { return aErrConnection; }
aErr PortClass::getVconnVoltage(int32_t*) { return aErrConnection; }
aErr PortClass::getVconnCurrent(int32_t*) { return aErrConnection; }

aErr PowerDeliveryClass::setPowerRole(const uint8_t) { return aErrConnection; }
aErr PowerDeliveryClass::getPowerRole(uint8_t*) { return aErrConnection; }
aErr PowerDeliveryClass::setOverride(const uint32_t) { return aErrConnection; }
aErr PowerDeliveryClass::getCableOrientation(uint8_t*) { return aErrConnection; }

aErr SystemClass::save() { return aErrConnection; }
aErr SystemClass::reset() { return aErrConnection; }
aErr SystemClass::setLED(const uint8_t) { return aErrConnection; }
aErr SystemClass::getLED(uint8_t*) { return aErrConnection; }
aErr SystemClass::getVersion(uint32_t*) { return aErrConnection; }
aErr SystemClass::setPowerLimitMax(const uint32_t) { return aErrConnection; }
aErr SystemClass::getPowerLimitMax(uint32_t*) { return aErrConnection; }
aErr SystemClass::getPowerLimit(uint32_t*) { return aErrConnection; }
aErr SystemClass::getInputPowerSource(uint8_t*) { return aErrConnection; }

Module::Module(const uint8_t, bool, const uint8_t) {}
Module::~Module() = default;
aErr Module::discoverAndConnect(linkType, const uint32_t) { return aErrNotFound; }
bool Module::isConnected() { return false; }
aErr Module::disconnect() { return aErrNone; }

}  // namespace Acroname::BrainStem

aUSBHub3c::aUSBHub3c(const uint8_t module, bool bAutoNetworking, const uint8_t model)
    : Acroname::BrainStem::Module(module, bAutoNetworking, model) {}

#if STANDIN_BRAINSTEM_MINOR >= 10
uint8_t aDiscovery_EnumerateModules(const linkType, aDiscoveryModuleFoundProc, void*, const uint32_t) {
    return 0;
}
const char* aError_GetErrorDescription(aErr) { return "stand-in library"; }
#else
uint8_t aDiscovery_EnumerateModules(const linkType, aDiscoveryModuleFoundProc, void*) { return 0; }
const char* aError_GetErrorText(aErr) { return "stand-in library"; }
#endif

void aVersion_ParseString(uint32_t build, char* buffer, size_t length) {
    std::snprintf(buffer, length, "%u.%u.%u", build >> 28, (build >> 24) & 0xF, build & 0xFFFFFF);
}
