#include "core/StateFolder.h"

#include "core/LogLocation.h"
#include "core/RealHomeFolder.h"

namespace core {

QString stateFolder() {
    const QString stateHome = qEnvironmentVariable("XDG_STATE_HOME");
    return stateHome.isEmpty() ? userLogFolder(realHomeFolder())
                               : stateHome + QStringLiteral("/tarvel");
}

}  // namespace core
