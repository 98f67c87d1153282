#pragma once

#include "restore/RestoreEngine.h"

#include <QString>

#include <memory>

namespace core {
class Settings;
}

namespace engines {

// The idevicerestore to run: the idevicerestorePath setting in every mode, else the one
// TARVEL_IDEVICERESTORE names (the simulator's stand-in with --simulate), else the one on PATH.
// Empty when there is none.
QString idevicerestorePath(const core::Settings& settings);

// The engine of this process, chosen from the shared settings on first use.
restore::RestoreEngine& sharedEngine();
// An engine of the process's kind reading `settings` (a restore with firmware of its own).
std::unique_ptr<restore::RestoreEngine> makeEngine(core::Settings& settings);

}  // namespace engines
