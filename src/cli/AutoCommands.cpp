#include "cli/AutoCommands.h"

#include "cli/BenchBoard.h"
#include "cli/Interrupts.h"
#include "cli/SimulatorLoss.h"

#include "engines/EngineChoice.h"
#include "core/Log.h"
#include "metrics/MetricsServer.h"
#include "restore/BusAttachmentEvents.h"
#include "restore/RestoreSession.h"
#include "unattended/BenchAssembly.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonObject>
#include <QTimer>

#include <cstdlib>
#include <memory>
#include <optional>

namespace cli {
namespace {

struct AutoOptions {
    bool restore = false;
    bool recoveryAfter = false;
    std::vector<std::string> ports;
    std::string metrics;
    bool json = false;
};

// 1 when any Mac failed or needs attention; 130 when Ctrl-C cancelled work under way; else 0.
int exitStatusOf(const unattended::BenchSummary& summary) {
    if (summary.failed > 0 || summary.needsAttention > 0)
        return exitFailure;
    return summary.cancelled > 0 ? exitInterrupted : exitSuccess;
}

unattended::BenchAssembly::Choices choicesOf(const AutoOptions& options) {
    unattended::BenchAssembly::Choices choices{options.restore, options.recoveryAfter, {}};
    for (const std::string& name : options.ports)
        choices.ports << QString::fromStdString(name).toUpper();
    return choices;
}

// --metrics: the exit status when the address is wrong or cannot be served.
std::optional<int> serveMetrics(const AutoOptions& options, unattended::BenchAssembly& assembly) {
    if (options.metrics.empty())
        return std::nullopt;
    QString error;
    const auto where = metrics::parseListenAddress(QString::fromStdString(options.metrics), error);
    if (!where)
        return fail(exitUsage, QStringLiteral("auto: --metrics: ") + error);
    const quint16 port = assembly.serveMetrics(*where, error);
    if (port == 0)
        return fail(exitFailure, QStringLiteral("auto: --metrics: ") + error);
    ZMRLogLevel1(
        QStringLiteral("Metrics at http://%1:%2/metrics").arg(where->address.toString()).arg(port));
    return std::nullopt;
}

QJsonArray historyOf(const restore::RestoreSession& session) {
    QJsonArray history;
    for (const restore::History& record : session.history())
        history.append(QJsonObject{{"device", record.device},
                                   {"serialNumber", record.serialNumber},
                                   {"message", record.message}});
    return history;
}

int runAuto(const CliContext& context, const AutoOptions& options) {
    if (const auto problem = context.hubLibraryProblem())
        return fail(exitFailure, *problem);
    if (const auto problem = context.simulatorProblem())
        return fail(exitFailure, *problem);
    restore::RestoreSession session(restore::RestoreSession::defaultCollaborators(nullptr, engines::sharedEngine()));
    unattended::BenchAssembly assembly(choicesOf(options), session, context.driverConsole());
    if (const auto status = serveMetrics(options, assembly))
        return *status;
    unattended::UnattendedBench& bench = assembly.bench();

    BenchBoard board(options.json);
    QObject::connect(&bench, &unattended::UnattendedBench::started,
                     [&] { board.started(bench.ports()); });
    QObject::connect(&bench, &unattended::UnattendedBench::startFailed, [](const QString& why) {
        fail(exitUsage, QStringLiteral("auto: ") + why);
        QCoreApplication::exit(exitUsage);
    });
    QObject::connect(
        &bench, &unattended::UnattendedBench::portChanged,
        [&](const unattended::BenchPort& port) { board.portChanged(port, assembly.now()); });
    QTimer boardTick;
    QObject::connect(&boardTick, &QTimer::timeout,
                     [&] { board.tick(bench.ports(), bench.summary(), assembly.now()); });
    boardTick.start(1000);
    QObject::connect(&bench, &unattended::UnattendedBench::stopped,
                     [] { QCoreApplication::exit(0); });

    QElapsedTimer sinceInterrupt;
    Interrupts interrupts([&] {
        // A second Ctrl-C within two seconds leaves at once.
        if (sinceInterrupt.isValid() && sinceInterrupt.elapsed() < 2000)
            std::_Exit(exitInterrupted);
        sinceInterrupt.start();
        board.note(
            QStringLiteral("Stopping: cancelling what is under way (Ctrl-C again within "
                           "2 s to leave at once)"));
        bench.stop();
    });
    SimulatorLoss loss(context.simulatorSocket(), [] {
        reportSimulatorLost("auto", QStringLiteral("the bench can no longer be watched"));
        QCoreApplication::exit(exitFailure);
    });

    const restore::BusAttachmentEvents attachments;
    assembly.start();
    const int loop = QCoreApplication::exec();
    const unattended::BenchSummary summary = bench.summary();
    const int status = loop != 0 ? loop : exitStatusOf(summary);
    ZMRLogLevel1(QStringLiteral("auto: %1").arg(BenchBoard::summaryLine(summary)));
    board.end(summary, historyOf(session), status);
    return status;
}

}  // namespace

void addAutoCommands(CLI::App& app, CliContext& context) {
    auto options = std::make_shared<AutoOptions>();
    CLI::App* command = app.add_subcommand(
        "auto",
        "Put every Mac plugged into a hub port into DFU mode (and restore it), until Ctrl-C");
    command->add_flag("--restore", options->restore, "restore each Mac once it is in DFU mode");
    command
        ->add_flag("--recovery-after", options->recoveryAfter,
                   "start each restored Mac into recovery")
        ->needs(command->get_option("--restore"));
    command->add_option("--ports", options->ports, "only these ports (HUB:PORT ...)");
    command->add_option("--metrics", options->metrics,
                        "serve Prometheus metrics on [ADDRESS:]PORT (loopback without ADDRESS)");
    command->add_flag("--json", options->json, "one JSON object a line");
    command->callback([options, &context] {
        context.action = [options, &context] { return runAuto(context, *options); };
    });
}

}  // namespace cli
