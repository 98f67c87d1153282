#include "cli/CliContext.h"
#include "cli/AutoCommands.h"
#include "cli/ConfiguratorCommands.h"
#include "cli/DefaultsCommands.h"
#include "cli/DoctorCommand.h"
#include "cli/HubCommands.h"
#include "cli/LocalCommands.h"
#include "cli/LogCommands.h"
#include "cli/RecordsCommands.h"
#include "cli/RestoreCommands.h"
#include "cli/StationCommands.h"
#include "cli/UsbCommands.h"

#include "core/BundleInfo.h"
#include "core/BundledDefaults.h"
#include "core/Log.h"
#include "core/Settings.h"
#include "core/ZMRUnifiedLogger.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QStringList>

#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

namespace {

QString commandLine(int argc, char** argv) {
    QStringList words{QStringLiteral("tarvel-cli")};
    for (int i = 1; i < argc; ++i) words << QString::fromLocal8Bit(argv[i]);
    return words.join(' ');
}

std::string versionText() {
    const core::BundleInfo& bundle = core::BundleInfo::shared();
    return QStringLiteral("tarvel-cli %1 (%2)")
        .arg(bundle.shortVersion(), bundle.bundleVersion())
        .toStdString();
}

// The first word that is not an option, when it names no command: CLI11 would only say that a
// command is required.
std::optional<std::string> unknownCommand(CLI::App& app, int argc, char** argv) {
    if (!app.get_subcommands().empty())
        return std::nullopt;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word.empty() || word.front() == '-')
            continue;
        const auto named =
            app.get_subcommands([&](CLI::App* command) { return command->check_name(word); });
        if (named.empty())
            return word;
        return std::nullopt;
    }
    return std::nullopt;
}

int reportUnknownCommand(CLI::App& app, const std::string& name) {
    std::fprintf(stderr, "tarvel-cli: unknown command: %s\ncommands:", name.c_str());
    for (const CLI::App* command : app.get_subcommands([](CLI::App*) { return true; }))
        std::fprintf(stderr, " %s", command->get_name().c_str());
    std::fprintf(stderr, "\n(tarvel-cli --help describes them)\n");
    return cli::exitUsage;
}

// A certificate is laid out with fonts, which only a GUI application object provides; the
// offscreen platform needs no display.
std::unique_ptr<QCoreApplication> makeApplication(int& argc, char** argv) {
    if (!cli::wantsCertificate(argc, argv))
        return std::make_unique<QCoreApplication>(argc, argv);
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // Without a session (ssh, cron, a container) Qt complains of the runtime folder it never
    // uses here; a script reading standard error must not take that for a failure.
    const QtMessageHandler previous = qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext&, const QString& message) {
            if (!message.startsWith(QLatin1String("QStandardPaths:")))
                std::fprintf(stderr, "%s\n", qPrintable(message));
        });
    auto application = std::make_unique<QGuiApplication>(argc, argv);
    qInstallMessageHandler(previous);
    return application;
}

}  // namespace

int main(int argc, char** argv) {
    const std::unique_ptr<QCoreApplication> application = makeApplication(argc, argv);
    core::Settings& settings = core::Settings::shared();
    core::registerBundledDefaults(settings);

    CLI::App app("Reset a bench of Macs through Acroname hubs and Apple Configurator.",
                 "tarvel-cli");
    app.set_version_flag("--version", versionText());
    app.require_subcommand(1);
    app.fallthrough();
    cli::CliContext context;
    cli::addGlobalOptions(app, context);
    cli::addDefaultsCommands(app, context, settings);
    cli::addLogCommands(app, context);
    cli::addHubCommands(app, context);
    cli::addUsbCommands(app, context);
    cli::addStationCommands(app, context);
    cli::addConfiguratorCommands(app, context);
    cli::addRestoreCommands(app, context);
    cli::addLocalCommands(app, context);
    cli::addDoctorCommand(app, context);
    cli::addRecordsCommands(app, context);
    cli::addAutoCommands(app, context);

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        // Help for a command that does not exist would read as success to a script.
        if (const auto unknown = unknownCommand(app, argc, argv))
            return reportUnknownCommand(app, *unknown);
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        if (const auto unknown = unknownCommand(app, argc, argv))
            return reportUnknownCommand(app, *unknown);
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        if (const auto unknown = unknownCommand(app, argc, argv))
            return reportUnknownCommand(app, *unknown);
        app.exit(e);
        return cli::exitUsage;
    }

    ZMRUnifiedLogger::setProcessEcho(context.verbose);
    context.applySimulatorSelection();
    // Technicians rely on the log to tell which command touched the bench and when.
    ZMRLogLevel1(commandLine(argc, argv));
    return context.action ? context.action() : cli::exitUsage;
}
