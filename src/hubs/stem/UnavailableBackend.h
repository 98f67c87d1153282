#pragma once

#include "hubs/stem/Backend.h"

namespace stem {

// The backend of a process without the hub library module: discovery finds nothing (and says so
// in the log once per process), connecting finds no module, every entity call fails with
// Connection.
class UnavailableBackend final : public Backend {
public:
    // reason is logged with the first discovery, e.g. why the simulator could not be used.
    explicit UnavailableBackend(QString reason = {});

    std::uint8_t aDiscovery_EnumerateModules(LinkType type, const ModuleFoundProc& callback,
                                             std::uint32_t networkInterface) override;
    std::unique_ptr<Module> createUSBHub3c(std::uint8_t address, bool autoNetworking,
                                           std::uint8_t model) override;

private:
    QString reason_;
};

}  // namespace stem
