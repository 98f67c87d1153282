#include "cli/LocalCommands.h"

#include "cli/LocalAutoRun.h"

#include "app/AppState.h"
#include "core/Dispatch.h"
#include "core/NotificationCenter.h"
#include "localport/FirmwareUpdater.h"
#include "localport/ZMRPrivHelperToolController.h"

#include <QCoreApplication>
#include <QTimer>

#include <cstdio>
#include <memory>
#include <optional>

namespace cli {
namespace {

// A helper that never answers must not hold the terminal: the client gives a call up after
// 25 s, and so does the command a little later.
constexpr int replyWaitMilliseconds = 30000;

// Runs the main loop until finish() is called or the wait is over; nullopt when it ran out or
// the helper could not be installed.
class ReplyWait {
  public:
    std::optional<std::int64_t> run(int milliseconds = replyWaitMilliseconds) {
        QTimer::singleShot(milliseconds, QCoreApplication::instance(),
                           [] { QCoreApplication::exit(1); });
        QCoreApplication::exec();
        return status_;
    }
    void finish(std::int64_t status) {
        status_ = status;
        QCoreApplication::exit(0);
    }

  private:
    std::optional<std::int64_t> status_;
};

int noAnswer() {
    return fail(exitFailure, QStringLiteral("the helper did not answer; `tarvel-cli local helper "
                                            "status` tells whether it is installed and running"));
}

std::optional<int> refuseWithoutSimulator(const CliContext& context) {
    if (const auto problem = context.simulatorProblem())
        return fail(exitFailure, *problem);
    return std::nullopt;
}

int enterDFU() {
    app::AppState appState;
    FirmwareUpdater updater(FirmwareUpdater::defaultCollaborators(&appState));
    ReplyWait wait;
    QObject::connect(&updater, &FirmwareUpdater::dfuAnswered,
                     [&](std::int64_t status) { wait.finish(status); });
    updater.gogoDFUMode();
    const auto status = wait.run();
    if (!status)
        return noAnswer();
    if (*status != 0)
        return fail(exitFailure, QStringLiteral("%1 (DFU mode error: %2)")
                                     .arg(FirmwareUpdater::dfuErrorText)
                                     .arg(*status));
    std::printf("The Mac on the DFU port is entering DFU mode.\n");
    return exitSuccess;
}

int restart() {
    app::AppState appState;
    FirmwareUpdater updater(FirmwareUpdater::defaultCollaborators(&appState));
    ReplyWait wait;
    QObject::connect(&updater, &FirmwareUpdater::rebootAnswered,
                     [&](std::int64_t status) { wait.finish(status); });
    updater.restart();
    const auto status = wait.run();
    if (!status)
        return noAnswer();
    if (*status != 0)
        return fail(
            exitFailure,
            QStringLiteral("%1 (status %2)").arg(FirmwareUpdater::rebootErrorText).arg(*status));
    std::printf("The Mac on the DFU port is restarting.\n");
    return exitSuccess;
}

// The reboots' replies are not awaited, as the sequence ignores them; it always runs its rounds.
int recovery() {
    app::AppState appState;
    FirmwareUpdater updater(FirmwareUpdater::defaultCollaborators(&appState));
    QObject::connect(&updater, &FirmwareUpdater::updateMessageChanged, [](const QString& message) {
        std::printf("%s\n", qPrintable(message));
        std::fflush(stdout);
    });
    QObject::connect(&updater, &FirmwareUpdater::recoveryFinished,
                     [] { QCoreApplication::exit(0); });
    updater.recovery();
    return QCoreApplication::exec() == 0 ? exitSuccess : exitFailure;
}

int helperStatus() {
    auto controller = ZMRPrivHelperToolController::initPrivate(
        ZMRPrivHelperToolController::defaultCollaborators());
    std::printf("installed: %s\n", controller->isToolInstalled() ? "yes" : "no");
    ReplyWait wait;
    controller->getVersionCallback([&](std::int64_t version) { wait.finish(version); });
    const auto version = wait.run();
    if (!version) {
        std::printf("version: no answer\n");
        return exitFailure;
    }
    std::printf("version: %lld (expected %lld)\n", static_cast<long long>(*version),
                static_cast<long long>(localport::helperVersion));
    return *version == localport::helperVersion ? exitSuccess : exitFailure;
}

int helperInstall() {
    auto controller = ZMRPrivHelperToolController::initPrivate(
        ZMRPrivHelperToolController::defaultCollaborators());
    localport::HelperError error;
    if (!controller->installToolError(&error))
        return fail(exitFailure, QStringLiteral("installing the helper failed: %1 (%2 %3)")
                                     .arg(error.localizedDescription, error.domain)
                                     .arg(error.code));
    std::printf("The helper is installed.\n");
    return exitSuccess;
}

// Installing happens inside the helper client, which only announces a failure; a technician at a
// terminal must see it, or a command waiting for a helper that never came looks merely slow.
void reportInstallFailures() {
    core::NotificationCenter::defaultCenter().addObserver(
        ZMRPrivHelperToolController::helperNotification,
        [](const QString&, const QVariantMap& userInfo) {
            const auto error = userInfo.value(ZMRPrivHelperToolController::underlyingErrorKey)
                                   .value<localport::HelperError>();
            fail(exitFailure, QStringLiteral("installing the helper failed: %1 (%2 %3)")
                                  .arg(error.localizedDescription, error.domain)
                                  .arg(error.code));
            // Announced before the command waits; its wait ends as soon as it has begun.
            dispatch::main([] { QCoreApplication::exit(exitFailure); });
        });
}

// Every local command needs the simulator running when it is selected.
void addAction(CLI::App* command, CliContext& context, std::function<int()> action) {
    command->callback([&context, action] {
        context.action = [&context, action] {
            if (const auto refused = refuseWithoutSimulator(context))
                return *refused;
            reportInstallFailures();
            return action();
        };
    });
}

}  // namespace

void addLocalCommands(CLI::App& app, CliContext& context) {
    CLI::App* local = app.add_subcommand("local", "The Mac cabled to this computer's own DFU port");
    local->require_subcommand(1);
    addAction(local->add_subcommand("dfu", "Put it into DFU mode"), context, enterDFU);
    addAction(local->add_subcommand("restart", "Restart it"), context, restart);
    addAction(local->add_subcommand("recovery", "Start it into recovery by five reboots"), context,
              recovery);

    auto options = std::make_shared<LocalAutoOptions>();
    CLI::App* automatic = local->add_subcommand(
        "auto", "Put each Mac plugged into the port into DFU mode, until Ctrl-C");
    automatic->add_flag("--restore", options->restore, "restore each Mac once it is in DFU mode");
    automatic->add_flag("--recovery-after", options->recoveryAfter,
                        "start each restored Mac into recovery");
    addAction(automatic, context, [options, &context] {
        options->simulator = context.simulatorSocket();
        return runLocalAuto(*options);
    });

    CLI::App* helper = local->add_subcommand("helper", "The privileged helper");
    helper->require_subcommand(1);
    addAction(helper->add_subcommand("status", "Whether it is installed and answers"), context,
              helperStatus);
    addAction(helper->add_subcommand("install", "Install it (asks for an administrator)"), context,
              helperInstall);
}

}  // namespace cli
