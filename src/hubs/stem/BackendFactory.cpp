#include "hubs/stem/Backend.h"
#include "hubs/stem/SimulatorBackend.h"
#include "hubs/stem/UnavailableBackend.h"

#include "core/Log.h"

#if TARVEL_HAS_BRAINSTEM_SDK
#include "hubs/stem/SdkBackend.h"
#endif

namespace stem {

bool hardwareLibraryBuiltIn() {
#if TARVEL_HAS_BRAINSTEM_SDK
    return true;
#else
    return false;
#endif
}

std::shared_ptr<Backend> makeBackend(std::optional<QString> simulatorSocket) {
    if (simulatorSocket)
        return std::make_shared<SimulatorBackend>(*simulatorSocket);
#if TARVEL_HAS_BRAINSTEM_SDK
    return std::make_shared<SdkBackend>();
#else
    return std::make_shared<UnavailableBackend>();
#endif
}

}  // namespace stem
