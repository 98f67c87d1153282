#pragma once

#include "cli/CliContext.h"

#include "configurator/DeviceListing.h"

#include <QString>

#include <CLI/CLI.hpp>

#include <cstdint>
#include <optional>

class ZMRConfigurator2Utility;

namespace cli {

// `devices [--json]`, `restore-device ECID [--ipsw PATH]` and `cache clear`: the bench as the
// restore engine sees it (its simulator stand-in's with --simulate).
void addConfiguratorCommands(CLI::App& app, CliContext& context);

// The exit status to leave with when the tool is missing; a listing whose tool cannot be launched
// never calls back, so that is ruled out first.
std::optional<int> refuseWithoutTool(const ZMRConfigurator2Utility& utility);
// Lists the attached devices as the process's restore engine sees them (Apple Configurator on the
// main loop, or the USB registry for idevicerestore); the exit status to leave with when the tool
// is missing or failed.
std::optional<int> listAttachedDevices(configurator::DeviceList* listed);
// ECIDs as Tarvel prints them: hexadecimal, with or without "0x".
std::optional<std::uint64_t> parseEcid(QString text);

}  // namespace cli
