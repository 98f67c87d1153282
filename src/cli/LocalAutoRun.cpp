#include "cli/LocalAutoRun.h"

#include "cli/CliContext.h"
#include "cli/ConfiguratorCommands.h"
#include "cli/Interrupts.h"
#include "cli/SimulatorLoss.h"

#include "engines/EngineChoice.h"
#include "core/AppState.h"
#include "localport/FirmwareUpdater.h"
#include "localport/LocalPortAutoRestore.h"
#include "restore/RestoreSession.h"
#include "localport/AutoDFU.h"
#include "usb/USBManager.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace cli {
namespace {

const QString cancelledMessage = QStringLiteral("Restore Cancelled");

void printLine(const QString& line) {
    std::printf("%s\n", qPrintable(line));
    std::fflush(stdout);
}

QString describe(const restore::DevicePtr& device) {
    const QString ecid = formatEcid(device->ecid());
    return device->serialNumber().isEmpty()
               ? ecid
               : QStringLiteral("%1 (%2)").arg(ecid, device->serialNumber());
}

restore::RestoreSession::Collaborators restoresOf(AutoDFU& cycle, core::AppState& appState) {
    auto collaborators = restore::RestoreSession::defaultCollaborators(&appState, engines::sharedEngine());
    collaborators.hostPort = localport::LocalPortAutoRestore::handOffTo(cycle);
    return collaborators;
}

// The restores of the cycle, with what the terminal shows of them.
class AutoRestores {
  public:
    AutoRestores(AutoDFU& cycle, core::AppState& appState, FirmwareUpdater& updater)
        : session_(restoresOf(cycle, appState)),
          handOff_({&cycle, &session_, &appState,
                    localport::LocalPortAutoRestore::engineListing(),
                    localport::LocalPortAutoRestore::registryPortDevice()}) {
        QObject::connect(&handOff_, &localport::LocalPortAutoRestore::restoreStarted,
                         [this](const restore::DevicePtr& device) {
                             current_ = device;
                             printLine(QStringLiteral("restoring %1").arg(describe(device)));
                         });
        QObject::connect(&handOff_, &localport::LocalPortAutoRestore::deviceRestored,
                         [this, &updater](const restore::DevicePtr& device) {
                             current_.reset();
                             updater.appendRestoredDevice(formatEcid(device->ecid()));
                             printLine(QStringLiteral("restored %1 (%2 restored so far)")
                                           .arg(describe(device))
                                           .arg(++restored_));
                         });
        QObject::connect(
            &handOff_, &localport::LocalPortAutoRestore::restoreFailed,
            [this](const restore::DevicePtr& device, const QString& message) {
                current_.reset();
                if (message == cancelledMessage) {
                    ++cancelled_;
                    printLine(QStringLiteral("restore of %1 cancelled").arg(describe(device)));
                    return;
                }
                ++failed_;
                printLine(
                    QStringLiteral("restore of %1 failed: %2").arg(describe(device), message));
            });
        QObject::connect(
            &session_, &restore::RestoreSession::deviceProgress,
            [this](const restore::DevicePtr& device, const QString& step, float) {
                if (step == lastStep_)
                    return;
                lastStep_ = step;
                printLine(QStringLiteral("%1: %2").arg(formatEcid(device->ecid()), step));
            });
    }

    bool isRestoring() const { return current_ != nullptr; }
    // Stops the restore under way; the end of its batch ends the run.
    void cancel() {
        QObject::connect(&session_, &restore::RestoreSession::batchFinished,
                         [] { QCoreApplication::exit(0); });
        session_.cancel({current_});
    }
    int restored() const { return restored_; }
    int failed() const { return failed_; }
    int cancelled() const { return cancelled_; }

  private:
    restore::RestoreSession session_;
    localport::LocalPortAutoRestore handOff_;
    restore::DevicePtr current_;
    QString lastStep_;
    int restored_ = 0;
    int failed_ = 0;
    int cancelled_ = 0;
};

void stopOnInterrupt(AutoRestores* restores, FirmwareUpdater& updater, QElapsedTimer& since) {
    // A second Ctrl-C within two seconds leaves at once.
    if (since.isValid() && since.elapsed() < 2000)
        std::_Exit(exitInterrupted);
    since.start();
    updater.setIsAutoDFUOn(false);
    updater.setIsAutoRestoreNotificationOn(false);
    if (restores && restores->isRestoring()) {
        printLine(
            QStringLiteral("Cancelling the restore (Ctrl-C again within 2 s to leave at once)"));
        restores->cancel();
        return;
    }
    QCoreApplication::exit(0);
}

}  // namespace

int runLocalAuto(const LocalAutoOptions& options) {
    core::AppState appState;
    FirmwareUpdater updater(FirmwareUpdater::defaultCollaborators(&appState));
    AutoDFU& cycle = AutoDFU::shared();
    QObject::connect(&cycle, &AutoDFU::autoTarvStateChanged, &updater, [](AutoTarvState state) {
        printLine(QStringLiteral("state: %1").arg(QString::fromLatin1(autoTarvStateName(state))));
    });
    QObject::connect(&cycle, &AutoDFU::recoveryAfterRestoreFinished, &updater, [] {
        printLine(QStringLiteral("the restored Mac was restarted five times into recovery mode"));
    });
    // Nobody at the bench can answer a refusal; the run ends rather than idle with the switch off.
    QObject::connect(
        &cycle, &AutoDFU::automaticDFURefused, &updater, [](const HelperFailure& failure) {
            fail(exitFailure,
                 QStringLiteral("local auto: %1").arg(FirmwareUpdater::failureText(failure)));
            QCoreApplication::exit(exitFailure);
        });
    std::unique_ptr<AutoRestores> restores;
    if (options.restore)
        restores = std::make_unique<AutoRestores>(cycle, appState, updater);

    QElapsedTimer sinceInterrupt;
    Interrupts interrupts([&] { stopOnInterrupt(restores.get(), updater, sinceInterrupt); });
    // The cycle waits for the port's arrivals, which a vanished simulator never sends.
    SimulatorLoss loss(options.simulator, [] {
        reportSimulatorLost("local auto", QStringLiteral("the DFU port can no longer be watched"));
        QCoreApplication::exit(exitFailure);
    });
    USBManager::sharedManager()->startWatching();
    updater.setIsBootToRecoveryOn(options.recoveryAfter);
    updater.setIsAutoDFUOn(true);
    if (options.restore)
        updater.setIsAutoRestoreNotificationOn(true);
    printLine(
        QStringLiteral("Plug Macs into this computer's DFU port one after another; Ctrl-C "
                       "stops."));
    const int loop = QCoreApplication::exec();

    updater.setIsAutoDFUOn(false);
    if (loop != 0)
        return exitFailure;
    if (!restores)
        return exitSuccess;
    printLine(QStringLiteral("%1 restored, %2 failed, %3 cancelled")
                  .arg(restores->restored())
                  .arg(restores->failed())
                  .arg(restores->cancelled()));
    if (restores->failed() > 0)
        return exitFailure;
    return restores->cancelled() > 0 ? exitInterrupted : exitSuccess;
}

}  // namespace cli
