#pragma once

#include "cli/CliContext.h"

#include <CLI/CLI.hpp>

namespace cli {

// `hubs`, `dfu`, `restart`, `recovery` and `power-mode`: the station as the hub window shows it,
// and the port sequences, from a terminal.
void addStationCommands(CLI::App& app, CliContext& context);

}  // namespace cli
