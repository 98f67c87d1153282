#pragma once

#include "cli/CliContext.h"

#include <CLI/CLI.hpp>

namespace cli {

// `devices [--json]`, `restore-device ECID [--ipsw PATH]` and `cache clear`: Apple
// Configurator's view of the bench (tarvel-sim-cfgutil's with --simulate).
void addConfiguratorCommands(CLI::App& app, CliContext& context);

}  // namespace cli
