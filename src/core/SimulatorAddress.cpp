#include "core/SimulatorAddress.h"

#include <unistd.h>

namespace core {

QString defaultSimulatorSocketPath() {
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty()) return runtime + QStringLiteral("/tarvel-sim.sock");
    return QStringLiteral("/tmp/tarvel-sim-%1.sock").arg(::getuid());
}

std::optional<QString> simulatorSocketFromEnvironment() {
    const QString named = qEnvironmentVariable("TARVEL_SIM");
    if (named.isEmpty()) return std::nullopt;
    return named;
}

}  // namespace core
