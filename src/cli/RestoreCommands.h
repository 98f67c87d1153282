#pragma once

#include "cli/CliContext.h"

#include <CLI/CLI.hpp>

namespace cli {

// `restore --all-dfu | ECID... [--history-json FILE]`: a batch through the restore queue, with
// one live row per device; Ctrl-C cancels the batch.
void addRestoreCommands(CLI::App& app, CliContext& context);

}  // namespace cli
