// The exported face of the hub library module (see hubs/stem/ModuleInterface.h).

#include "hubs/stem/ModuleInterface.h"
#include "hubs/stem/SdkBackend.h"

#include <string>

#define TARVEL_MODULE_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

#if TARVEL_BRAINSTEM_HAS_SET_UEI_BYTES
constexpr const char* kSdkFeatures = "sends reboot and DFU messages";
#else
constexpr const char* kSdkFeatures = "SDK older than 2.10: cannot send reboot and DFU messages";
#endif

}  // namespace

TARVEL_MODULE_EXPORT int tarvel_stem_module_interface_version() {
    return stem::kModuleInterfaceVersion;
}

TARVEL_MODULE_EXPORT const char* tarvel_stem_module_description() {
    static const std::string description = "BrainStem2 SDK adapter, module interface " +
                                           std::to_string(stem::kModuleInterfaceVersion) + ", " +
                                           kSdkFeatures;
    return description.c_str();
}

TARVEL_MODULE_EXPORT stem::Backend* tarvel_stem_module_create_backend(stem::ModuleLogFunction log) {
    return new stem::SdkBackend(log);
}
