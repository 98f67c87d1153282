#include "cli/CliContext.h"

#include "core/Settings.h"
#include "core/SettingsKeys.h"

#include "core/SimulatorAddress.h"
#include "hubs/stem/Backend.h"
#include "hubs/stem/HubLibrary.h"

#include <QRegularExpression>

#include <cstdio>

namespace cli {

std::optional<QString> CliContext::simulatorSocket() const {
    if (!simulateSocket.empty())
        return QString::fromStdString(simulateSocket);
    return core::simulatorSocketFromEnvironment();
}

void CliContext::applySimulatorSelection() const {
    if (const auto socket = simulatorSocket()) core::selectSimulator(*socket);
}

std::optional<QString> CliContext::simulatorProblem() const {
    const auto socket = simulatorSocket();
    if (!socket)
        return std::nullopt;
    return core::simulatorProblem(*socket);
}

std::optional<QString> CliContext::hubLibraryProblem() const {
    if (simulatorSocket() || stem::hardwareLibraryAvailable())
        return std::nullopt;
    return stem::HubLibrary::process().problem() +
           QStringLiteral(" (or use --simulate to work with tarvel-sim)");
}

bool isHubName(const QString& text) {
    static const QRegularExpression hexadecimal(QStringLiteral("^[0-9A-Fa-f]{1,8}$"));
    return hexadecimal.match(text).hasMatch();
}

DriverConsole CliContext::driverConsole() const {
    if (verbose)
        return DriverConsole::standardError();
    return {[](const std::string&) {}, [](const std::string&) {}};
}

void addGlobalOptions(CLI::App& app, CliContext& context) {
    // A flag, not an option, so "--simulate hub list" never takes "hub" for the socket.
    const std::string flag = "--simulate{" + core::defaultSimulatorSocketPath().toStdString() + "}";
    app.add_flag(flag, context.simulateSocket,
                 "talk to tarvel-sim instead of real hardware (--simulate=SOCKET for another "
                 "socket; TARVEL_SIM does the same)");
    app.add_flag("-v,--verbose", context.verbose,
                 "also print log lines and hub driver diagnostics on standard error");
    app.add_flag("--parallel", context.parallel,
                 "hubs, dfu, restart, recovery, power-mode: work every hub at once, one lane per "
                 "hub (the acronameParallelHubs setting, for this run)");
}

bool CliContext::parallelHubs() const {
    return parallel || core::Settings::shared().boolForKey(core::keys::acronameParallelHubs);
}

int fail(int status, const QString& message) {
    std::fprintf(stderr, "tarvel-cli: %s\n", qPrintable(message));
    return status;
}

}  // namespace cli
