#pragma once

// Built only into the hub library module (src/hubs/stem/module), against the vendor SDK.

#include "hubs/stem/Backend.h"
#include "hubs/stem/ModuleInterface.h"

namespace stem {

// A pass-through to Acroname's BrainStem2 library; nothing here adds behaviour of its own.
class SdkBackend final : public Backend {
public:
    explicit SdkBackend(ModuleLogFunction log);

    std::uint8_t aDiscovery_EnumerateModules(LinkType type, const ModuleFoundProc& callback,
                                             std::uint32_t networkInterface) override;
    std::unique_ptr<Module> createUSBHub3c(std::uint8_t address, bool autoNetworking,
                                           std::uint8_t model) override;
    void aVersion_ParseString(std::uint32_t build, char* buffer, std::size_t length) override;
    const char* aError_GetErrorDescription(aErr error) override;

private:
    ModuleLogFunction log_;
};

}  // namespace stem
