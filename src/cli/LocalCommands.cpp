#include "cli/LocalCommands.h"

#include "cli/LocalAutoRun.h"

#include "core/AppState.h"
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

// The helper client ends every call itself, after the longest password prompt at the latest;
// this only keeps a client that broke that promise from holding the terminal for ever.
constexpr int replyWaitMilliseconds =
    localport::promptWaitMilliseconds + localport::replyWaitMilliseconds + 5000;
constexpr int exitTimedOut = 3;

// What a request to the helper came to: its status, why none came, or neither when the wait
// ran out or installing the helper failed (which has said so already).
struct Outcome {
    std::optional<std::int64_t> status;
    std::optional<HelperFailure> failure;
    bool timedOut = false;
};

// Runs the main loop until the request ends.
class ReplyWait {
  public:
    Outcome run() {
        QTimer::singleShot(replyWaitMilliseconds, QCoreApplication::instance(),
                           [] { QCoreApplication::exit(exitTimedOut); });
        outcome_.timedOut = QCoreApplication::exec() == exitTimedOut;
        return outcome_;
    }
    void finish(std::int64_t status) {
        outcome_.status = status;
        QCoreApplication::exit(0);
    }
    void fail(const HelperFailure& failure) {
        outcome_.failure = failure;
        QCoreApplication::exit(0);
    }

  private:
    Outcome outcome_;
};

int unanswered(const Outcome& outcome) {
    if (outcome.failure)
        return fail(exitFailure, FirmwareUpdater::failureText(*outcome.failure));
    if (outcome.timedOut)
        return fail(exitFailure, QStringLiteral("the helper client gave no answer within %1 s")
                                     .arg(replyWaitMilliseconds / 1000));
    return exitFailure;
}

std::optional<int> refuseWithoutSimulator(const CliContext& context) {
    if (const auto problem = context.simulatorProblem())
        return fail(exitFailure, *problem);
    return std::nullopt;
}

int enterDFU() {
    core::AppState appState;
    FirmwareUpdater updater(FirmwareUpdater::defaultCollaborators(&appState));
    ReplyWait wait;
    QObject::connect(&updater, &FirmwareUpdater::dfuAnswered,
                     [&](std::int64_t status) { wait.finish(status); });
    QObject::connect(&updater, &FirmwareUpdater::dfuFailed,
                     [&](const HelperFailure& failure) { wait.fail(failure); });
    updater.gogoDFUMode();
    const Outcome outcome = wait.run();
    const std::optional<std::int64_t> status = outcome.status;
    if (!status)
        return unanswered(outcome);
    if (*status != 0)
        return fail(exitFailure, QStringLiteral("%1 (DFU mode error: %2)")
                                     .arg(FirmwareUpdater::dfuErrorText)
                                     .arg(*status));
    std::printf("The Mac on the DFU port is entering DFU mode.\n");
    return exitSuccess;
}

int restart() {
    core::AppState appState;
    FirmwareUpdater updater(FirmwareUpdater::defaultCollaborators(&appState));
    ReplyWait wait;
    QObject::connect(&updater, &FirmwareUpdater::rebootAnswered,
                     [&](std::int64_t status) { wait.finish(status); });
    QObject::connect(&updater, &FirmwareUpdater::rebootFailed,
                     [&](const HelperFailure& failure) { wait.fail(failure); });
    updater.restart();
    const Outcome outcome = wait.run();
    const std::optional<std::int64_t> status = outcome.status;
    if (!status)
        return unanswered(outcome);
    if (*status != 0)
        return fail(
            exitFailure,
            QStringLiteral("%1 (status %2)").arg(FirmwareUpdater::rebootErrorText).arg(*status));
    std::printf("The Mac on the DFU port is restarting.\n");
    return exitSuccess;
}

// The reboots' replies are not awaited, as the sequence ignores them; it always runs its rounds.
int recovery() {
    core::AppState appState;
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
    controller->getVersionCallback([&](std::int64_t version) { wait.finish(version); },
                                   [&](const HelperFailure& failure) { wait.fail(failure); });
    const Outcome outcome = wait.run();
    const std::optional<std::int64_t> version = outcome.status;
    if (!version) {
        std::printf("version: no answer\n");
        return unanswered(outcome);
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
