#pragma once

#include <QString>

#include <optional>

namespace core {

// Where tarvel-sim listens unless told otherwise: in the user's runtime folder when there is
// one, so two users on one machine each get their own station.
QString defaultSimulatorSocketPath();

// The socket named by TARVEL_SIM, which tarvel-sim also passes to the children it starts.
std::optional<QString> simulatorSocketFromEnvironment();

}  // namespace core
