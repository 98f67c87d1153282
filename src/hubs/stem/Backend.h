#pragma once

#include "hubs/stem/Module.h"
#include "hubs/stem/Types.h"

#include <QString>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

namespace stem {

// The vendor library as the hub driver uses it: discovery, module objects and the two text
// helpers. One backend serves every hub of the process and may be called from any thread.
class Backend {
  public:
    virtual ~Backend() = default;

    // Answers the number of modules reported (0 when none, which the driver reads as failure).
    virtual std::uint8_t aDiscovery_EnumerateModules(LinkType type, const ModuleFoundProc& callback,
                                                     std::uint32_t networkInterface) = 0;

    // The library's `aUSBHub3c(address, autoNetworking, model)` constructor.
    virtual std::unique_ptr<Module> createUSBHub3c(std::uint8_t address, bool autoNetworking,
                                                   std::uint8_t model) = 0;

    // Writes the packed version as text into buffer (always terminated when length > 0).
    virtual void aVersion_ParseString(std::uint32_t build, char* buffer, std::size_t length);

    // A short description of a result code; the text stays valid for the life of the process.
    virtual const char* aError_GetErrorDescription(aErr error);
};

// "major.minor.patch" for a version packed as packVersion() packs it.
QString versionText(std::uint32_t build);

// Whether this process can talk to real hubs (the hub library module is loaded).
bool hardwareLibraryAvailable();

// The backend for this process: the simulator when a socket is given, otherwise the hub library
// module's when it loaded, otherwise the unavailable backend (which logs why, once).
std::shared_ptr<Backend> makeBackend(std::optional<QString> simulatorSocket);

}  // namespace stem
