#pragma once

#include <QString>

#include <optional>

namespace core {

// Where tarvel-sim listens unless told otherwise: in the user's runtime folder when there is
// one, so two users on one machine each get their own station.
QString defaultSimulatorSocketPath();

// The socket named by TARVEL_SIM, which tarvel-sim also passes to the children it starts.
std::optional<QString> simulatorSocketFromEnvironment();

// Makes the simulator at the socket the process's: TARVEL_SIM names it for every backend and
// child, and the engines' tools become tarvel-sim-cfgutil and tarvel-sim-idevicerestore beside
// this executable unless TARVEL_CFGUTIL and TARVEL_IDEVICERESTORE already name others. The system clock's pauses follow the station's speed.
void selectSimulator(const QString& socket);

// Why the simulator at the socket cannot be used (nothing listens there), if it cannot. A silent
// simulator is an error of its own, not an empty station.
std::optional<QString> simulatorProblem(const QString& socket);

}  // namespace core
