#pragma once

#include "cli/CliContext.h"

namespace cli {

// `auto`: the unattended bench on every usable hub port (or those named) until Ctrl-C.
void addAutoCommands(CLI::App& app, CliContext& context);

}  // namespace cli
