#pragma once

#include "cli/CliContext.h"

#include <CLI/CLI.hpp>

namespace cli {

// `records [filters] [--json | --csv]`, `records verify`, `records certificate` and
// `records sync`: the restore records of this bench, or of the facility with --facility.
void addRecordsCommands(CLI::App& app, CliContext& context);

// Whether the command line asks for a certificate, which needs fonts and so a GUI application
// object (on the offscreen platform; nothing is shown).
bool wantsCertificate(int argc, char** argv);

}  // namespace cli
