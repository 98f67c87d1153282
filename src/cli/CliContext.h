#pragma once

#include "hubs/DriverConsole.h"

#include <QString>

#include <CLI/CLI.hpp>

#include <functional>
#include <optional>
#include <string>

namespace cli {

// Exit statuses shared by every command.
inline constexpr int exitSuccess = 0;
inline constexpr int exitFailure = 1;
inline constexpr int exitUsage = 2;
// Stopped by Ctrl-C, as a shell reports a command that SIGINT ended.
inline constexpr int exitInterrupted = 130;

// What parsing decided: the one command to run (main() runs it only after the audit line is in
// the log) and the global options every command group reads.
struct CliContext {
    std::function<int()> action;
    std::string simulateSocket;  // set by --simulate[=SOCKET]
    bool verbose = false;        // set by --verbose
    bool parallel = false;       // set by --parallel

    // Whether hub commands work every hub at once: --parallel, else the acronameParallelHubs
    // setting.
    bool parallelHubs() const;

    // The simulator to talk to: --simulate=SOCKET, --simulate alone (the default socket), or
    // TARVEL_SIM; nothing means real hardware.
    std::optional<QString> simulatorSocket() const;

    // Makes the chosen simulator the process's: TARVEL_SIM names its socket for every backend
    // and child, and the Configurator tool becomes tarvel-sim-cfgutil unless TARVEL_CFGUTIL
    // already names one.
    void applySimulatorSelection() const;

    // Why the chosen simulator cannot be used (nothing listens on its socket), if it cannot. A
    // silent simulator is an error of its own, not an empty station.
    std::optional<QString> simulatorProblem() const;

    // Why hubs cannot be reached at all, if they cannot: no simulator is selected and this build
    // has no hub library.
    std::optional<QString> hubLibraryProblem() const;

    // The hub driver's diagnostics: on standard error with --verbose, otherwise dropped, so
    // that standard output stays a table or JSON and standard error stays for our own errors.
    DriverConsole driverConsole() const;
};

// Adds the global options (--simulate, --verbose, --parallel) to the top-level command.
void addGlobalOptions(CLI::App& app, CliContext& context);

// A hub as tarvel-cli names it: its serial in hexadecimal, one to eight digits.
bool isHubName(const QString& text);

// Prints "tarvel-cli: message" on standard error and answers the status, for one-line returns.
int fail(int status, const QString& message);

}  // namespace cli
