#pragma once

#include "cli/CliContext.h"

#include <CLI/CLI.hpp>

namespace cli {

// `log path` and `log show [--follow]` on the file the logger chose for this user.
void addLogCommands(CLI::App& app, CliContext& context);

}  // namespace cli
