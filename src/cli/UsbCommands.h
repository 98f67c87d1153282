#pragma once

#include "cli/CliContext.h"

#include <CLI/CLI.hpp>

namespace cli {

// `usb list [--json]` and `usb watch [--json]` over the USB registry (or the simulator's).
void addUsbCommands(CLI::App& app, CliContext& context);

}  // namespace cli
