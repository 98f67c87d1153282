#include "cli/StationCommands.h"

#include "station/MacModeCheck.h"
#include "cli/HubListOutput.h"
#include "cli/ModeVerification.h"
#include "cli/StationSession.h"

#include "configurator/AC2Device.h"
#include "core/Clock.h"
#include "core/Log.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cstdio>

namespace cli {
namespace {

struct PortTargets {
    bool all = false;
    bool json = false;
    bool noVerify = false;
    std::vector<std::string> names;
};

void addTargets(CLI::App* command, PortTargets& targets) {
    command->add_flag("--all", targets.all, "every usable port of every hub");
    command->add_flag("--json", targets.json, "progress and verdict as JSON lines");
    command->add_option("PORTS", targets.names, "ports as HUB:PORT, HUB as `hubs` prints it");
}

// The verdict is the command's last line: on standard output when every port is done, on
// standard error otherwise. The log keeps every failed port and the verdict.
int reportVerdict(const char* what, const station::PortVerdict& verdict, bool json) {
    for (const QString& failure : verdict.failureDescriptions())
        ZMRLogLevel0(QStringLiteral("%1: port %2").arg(what, failure));
    for (const QString& line : verdict.unverifiedDescriptions()) {
        ZMRLogLevel0(QStringLiteral("%1: %2").arg(what, line));
        std::fprintf(stderr, "%s\n", qPrintable(line));
    }
    const QString line = QStringLiteral("%1: %2").arg(what, verdict.summary());
    if (!verdict.succeeded()) {
        ZMRLogLevel0(line);
        return fail(verdict.interrupted() ? exitInterrupted : exitFailure, line);
    }
    ZMRLogLevel1(line);
    if (!json)
        std::printf("%s\n", qPrintable(line));
    return exitSuccess;
}

int printHubs(const CliContext& context, bool json) {
    if (const auto problem = context.hubLibraryProblem())
        return fail(exitFailure, *problem);
    if (const auto problem = context.simulatorProblem())
        return fail(exitFailure, *problem);
    StationSession session(context);
    const AC2Devices entries = session.refresh();
    QJsonArray rows;
    if (!json)
        std::printf("%-10s %-16s %4s %11s %11s %9s  %s\n", "Hub Serial", "Firmware Version", "Port",
                    "Voltage (V)", "Current (A)", "Power (W)", "Connected");
    for (const auto& entry : entries) {
        const auto port = entry->port();
        const AcronameHub* hub = port ? port->hub() : nullptr;
        const QString serial = hub ? hub->modelName() : QString();
        const QString firmware = hub ? hub->firmwareVersion() : QString();
        if (json) {
            rows.append(QJsonObject{{"hub", serial},
                                    {"firmwareVersion", firmware},
                                    {"port", qint64(port->portID())},
                                    {"voltage", voltageText(*port)},
                                    {"current", currentText(*port)},
                                    {"power", powerText(*port)},
                                    {"connected", port->isConnected()},
                                    {"enabled", port->isEnabled()}});
            continue;
        }
        std::printf("%-10s %-16s %4lld %11s %11s %9s  %s\n", qPrintable(serial),
                    qPrintable(firmware), static_cast<long long>(port->portID()),
                    qPrintable(voltageText(*port)), qPrintable(currentText(*port)),
                    qPrintable(powerText(*port)),
                    !port->isEnabled()    ? "disabled (a Mac may be on it)"
                    : port->isConnected() ? "yes"
                                          : "no");
    }
    if (json)
        std::printf("%s",
                    QJsonDocument(rows).toJson(QJsonDocument::Compact).append('\n').constData());
    else if (entries.empty())
        std::printf("No hubs found.\n");
    return exitSuccess;
}

// Refreshes, picks the ports, runs one sequence, and turns its outcome into an exit status.
int runOnPorts(const CliContext& context, const PortTargets& targets, const char* what,
               std::optional<station::MacMode> expected,
               const std::function<station::PortVerdict(StationSession&, const AcronamePorts&,
                                               ProgressDisplay&)>& run) {
    if (targets.all == !targets.names.empty())
        return fail(exitUsage,
                    QStringLiteral("%1: name the ports as HUB:PORT, or give --all").arg(what));
    for (const std::string& name : targets.names) {
        const QString target = QString::fromStdString(name);
        if (!isHubName(target.section(':', 0, 0)))
            return fail(
                exitUsage,
                QStringLiteral(
                    "%1: %2: the hub must be its serial in hexadecimal, as `hubs` prints it")
                    .arg(what, target));
    }
    if (const auto problem = context.simulatorProblem())
        return fail(exitFailure, *problem);
    StationSession session(context);
    QString error;
    auto ports = session.selectPorts(session.refresh(), targets.all, targets.names, error);
    if (!ports)
        return fail(exitFailure, error);
    if (ports->empty())
        return fail(exitFailure, QStringLiteral("%1: the station has no usable ports").arg(what));
    // A disabled port hides whether a Mac is on it: enabled, it shows, and is worked like the rest.
    std::vector<std::string> chosen;
    for (const auto& port : *ports) chosen.push_back(port->name().toStdString());
    const QStringList wereDisabled = session.enableDisabledPorts(*ports);
    if (!wereDisabled.isEmpty()) {
        ports = session.selectPorts(session.refresh(), false, chosen, error);
        if (!ports)
            return fail(exitFailure, error);
    }

    ProgressDisplay display =
        ProgressDisplay::forStandardOutput(targets.json, context.parallelHubs());
    station::PortVerdict verdict = run(session, *ports, display);
    if (context.simulatorProblem())
        verdict.recordLoss(QStringLiteral("lost the simulator"));
    if (expected && !targets.noVerify)
        verifyModes(context, verdict, *expected, display);
    display.finish(verdict);
    return reportVerdict(what, verdict, targets.json);
}

void addSequenceCommand(CLI::App& app, CliContext& context, const char* name, const char* help,
                        StationSession::Sequence sequence, std::optional<station::MacMode> expected = {}) {
    CLI::App* command = app.add_subcommand(name, help);
    auto targets = std::make_shared<PortTargets>();
    addTargets(command, *targets);
    if (expected)
        command->add_flag("--no-verify", targets->noVerify,
                          "do not wait for the Macs to show the mode on USB afterwards");
    command->callback([&context, targets, sequence, name, expected] {
        context.action = [&context, targets, sequence, name, expected] {
            return runOnPorts(context, *targets, name, expected,
                              [sequence](StationSession& session, const AcronamePorts& ports,
                                         ProgressDisplay& display) {
                                  return session.run(sequence, ports, display);
                              });
        };
    });
}

std::optional<std::int64_t> powerModeNumber(const QString& text) {
    const QString mode = text.toLower();
    if (mode == "pd")
        return 0;
    if (mode == "sdp")
        return 1;
    if (mode == "cdp")
        return 2;
    if (mode == "cycle")
        return 3;
    bool ok = false;
    const std::int64_t number = mode.toLongLong(&ok);
    if (ok && number >= 0)
        return number;
    return std::nullopt;
}

void addPowerModeCommand(CLI::App& app, CliContext& context) {
    CLI::App* command = app.add_subcommand(
        "power-mode", "Power-cycle ports into a mode: pd, sdp, cdp, or cycle (no mode change)");
    auto mode = std::make_shared<std::string>();
    auto targets = std::make_shared<PortTargets>();
    command->add_option("MODE", *mode, "pd, sdp, cdp or cycle")->required();
    addTargets(command, *targets);
    command->callback([&context, mode, targets] {
        context.action = [&context, mode, targets] {
            const auto number = powerModeNumber(QString::fromStdString(*mode));
            if (!number)
                return fail(
                    exitUsage,
                    QStringLiteral("power-mode: unknown mode %1 (use pd, sdp, cdp or cycle)")
                        .arg(QString::fromStdString(*mode)));
            return runOnPorts(context, *targets, "power-mode", std::nullopt,
                              [number](StationSession& session, const AcronamePorts& ports,
                                       ProgressDisplay& display) {
                                  return session.runPowerMode(*number, ports, display);
                              });
        };
    });
}

}  // namespace

void addStationCommands(CLI::App& app, CliContext& context) {
    CLI::App* hubs =
        app.add_subcommand("hubs", "Refresh the station and list every usable hub port");
    auto json = std::make_shared<bool>(false);
    hubs->add_flag("--json", *json, "one JSON array of ports");
    hubs->callback([&context, json] {
        context.action = [&context, json] { return printHubs(context, *json); };
    });

    addSequenceCommand(app, context, "dfu", "Put the Macs on the given ports into DFU mode",
                       StationSession::Sequence::Dfu, station::MacMode::Dfu);
    addSequenceCommand(app, context, "restart", "Restart the Macs on the given ports",
                       StationSession::Sequence::Restart);
    addSequenceCommand(app, context, "recovery", "Start the Macs on the given ports into recovery",
                       StationSession::Sequence::Recovery, station::MacMode::Recovery);
    addPowerModeCommand(app, context);
}

}  // namespace cli
