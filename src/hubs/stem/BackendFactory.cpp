#include "hubs/stem/Backend.h"
#include "hubs/stem/HubLibrary.h"
#include "hubs/stem/SimulatorBackend.h"
#include "hubs/stem/UnavailableBackend.h"

namespace stem {

bool hardwareLibraryAvailable() {
    return HubLibrary::process().state() == HubLibrary::State::Loaded;
}

std::shared_ptr<Backend> makeBackend(std::optional<QString> simulatorSocket) {
    if (simulatorSocket)
        return std::make_shared<SimulatorBackend>(*simulatorSocket);
    const HubLibrary& library = HubLibrary::process();
    if (auto backend = library.createBackend())
        return backend;
    return std::make_shared<UnavailableBackend>(library.problem());
}

}  // namespace stem
