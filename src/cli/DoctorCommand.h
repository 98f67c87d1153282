#pragma once

#include "cli/CliContext.h"

#include <CLI/CLI.hpp>

namespace cli {

// `doctor [--json]`: what the mode in use needs, one line a check with the fix for each that
// fails; exit 0 when everything is in place, 1 otherwise.
void addDoctorCommand(CLI::App& app, CliContext& context);

}  // namespace cli
