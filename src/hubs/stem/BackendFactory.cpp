#include "hubs/stem/Backend.h"
#include "hubs/stem/UnavailableBackend.h"

#include "core/Log.h"

#if TARVEL_HAS_BRAINSTEM_SDK
#include "hubs/stem/SdkBackend.h"
#endif

namespace stem {

std::shared_ptr<Backend> makeBackend(std::optional<QString> simulatorSocket) {
    if (simulatorSocket) {
        const QString reason =
            QStringLiteral("The hub simulator client is not part of this build; no hubs can be "
                           "reached at %1")
                .arg(*simulatorSocket);
        ZMRLogLevel1(reason);
        return std::make_shared<UnavailableBackend>(reason);
    }
#if TARVEL_HAS_BRAINSTEM_SDK
    return std::make_shared<SdkBackend>();
#else
    return std::make_shared<UnavailableBackend>();
#endif
}

}  // namespace stem
