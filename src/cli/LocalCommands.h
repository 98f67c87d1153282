#pragma once

#include "cli/CliContext.h"

#include <CLI/CLI.hpp>

namespace cli {

// `local dfu | restart | recovery`, `local auto [--restore] [--recovery-after]` and
// `local helper status | install`: the Mac cabled to this computer's own DFU port, through the
// privileged helper.
void addLocalCommands(CLI::App& app, CliContext& context);

}  // namespace cli
