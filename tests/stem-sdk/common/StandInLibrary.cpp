// Just enough of a BrainStem2 library behind the stand-in headers for a module built against
// them to load and to run discovery, which finds no hubs. The entity calls stay undefined: with
// no hub found nothing reaches them, and a stand-in must not pretend to drive one.

#include <BrainStem2/BrainStem-all.h>

#include <cstdio>

namespace Acroname::BrainStem {

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
