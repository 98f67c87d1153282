#pragma once

#include "cli/CliContext.h"

#include <CLI/CLI.hpp>

namespace core {
class Settings;
}

namespace cli {

// `defaults read|write|delete`, with the argument shape of the platform's own tool.
void addDefaultsCommands(CLI::App& app, CliContext& context, core::Settings& settings);

}  // namespace cli
