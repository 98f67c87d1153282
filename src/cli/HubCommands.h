#pragma once

#include "cli/CliContext.h"

#include <CLI/CLI.hpp>

namespace cli {

// `hub list|led|reboot` and `port enable|disable|power-mode|dfu|reboot` on the hubs of the
// station: real hardware, or tarvel-sim with --simulate.
void addHubCommands(CLI::App& app, CliContext& context);

}  // namespace cli
