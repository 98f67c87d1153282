#include "engines/IdevicerestoreEngine.h"

#include "engines/IdevicerestoreOutput.h"

#include "configurator/RegistryListing.h"
#include "configurator/ZMTaskWrapperWithBlocks.h"
#include "core/Dispatch.h"
#include "core/Log.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"
#include "usb/MacModelNames.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>

namespace engines {
namespace {

QString hexEcid(std::uint64_t ecid) {
    return QString::number(ecid, 16).toUpper();
}

}  // namespace

// One Mac's restore while it runs: the child, its private working folder and what it printed.
struct IdevicerestoreEngine::Run {
    DevicePtr device;
    Runner runner;
    std::unique_ptr<QTemporaryDir> workingFolder;
    QString logFile;
    IdevicerestoreOutput output;
    OutputBlock outputBlock;
    CompletedBlock completed;

    void report(const QList<IdevicerestoreOutput::Progress>& changes) {
        // The serial number shows first in recovery mode; the record wants it.
        if (device->serialNumber().isEmpty() && !output.serialNumber().isEmpty())
            device->setSerialNumber(output.serialNumber());
        for (const auto& change : changes) {
            outputBlock(device, change.step, change.progress);
            // The step alone: the views draw the progress beside it.
            device->setRestoreStatus(change.step);
        }
    }
};

IdevicerestoreEngine::IdevicerestoreEngine(Collaborators collaborators)
    : c_(std::move(collaborators)) {}

IdevicerestoreEngine::~IdevicerestoreEngine() = default;

QStringList IdevicerestoreEngine::command(const QString& toolPath, std::uint64_t ecid,
                                          const QString& logFile, const QString& firmware) {
    return {toolPath,
            QStringLiteral("-i"),
            QStringLiteral("0x") + hexEcid(ecid),
            QStringLiteral("-e"),
            QStringLiteral("-y"),
            QStringLiteral("-P"),
            QStringLiteral("--logfile=") + logFile,
            firmware};
}

QString IdevicerestoreEngine::name() const {
    return QStringLiteral("idevicerestore");
}

QString IdevicerestoreEngine::version() const {
    if (!version_.isEmpty() || !isInstalled())
        return version_;
    QProcess probe;
    probe.start(c_.toolPath, {QStringLiteral("-v")});
    if (probe.waitForFinished(5000))
        version_ =
            QString::fromLocal8Bit(probe.readAllStandardOutput()).section('\n', 0, 0).trimmed();
    else
        probe.kill();
    return version_;
}

bool IdevicerestoreEngine::isInstalled() const {
    return !c_.toolPath.isEmpty() && QFileInfo(c_.toolPath).isExecutable();
}

core::Alert IdevicerestoreEngine::notInstalledAlert() const {
    return {QStringLiteral("idevicerestore Not Found"),
            QStringLiteral("Tarvel restores Macs on this system with idevicerestore, which was not "
                           "found. Install it (`tarvel-cli doctor` says which version a bench "
                           "needs) or name it with the idevicerestorePath setting. It is not "
                           "required to put devices into DFU mode."),
            {QStringLiteral("OK")}};
}

QString IdevicerestoreEngine::firmwarePath() const {
    const core::Settings& settings = *c_.settings;
    if (settings.boolForKey(core::keys::useCustomIPSW) &&
        !settings.stringForKey(core::keys::customIPSWPath).isEmpty())
        return settings.stringForKey(core::keys::customIPSWPath);
    const QString chosen = settings.stringForKey(core::keys::firmwarePath);
    return chosen.isEmpty() ? c_.fallbackFirmware : chosen;
}

// idevicerestore cannot pick macOS firmware by itself without the network: a restore without a
// file or folder to give it would fail on every Mac, so none starts.
bool IdevicerestoreEngine::refusesFirmware() {
    const QString firmware = firmwarePath();
    if (firmware.isEmpty()) {
        c_.alerts->show({QStringLiteral("No Firmware to Restore"),
                         QStringLiteral("idevicerestore restores the IPSW file or extracted folder "
                                        "named by the firmwarePath setting (or tarvel-cli's "
                                        "--ipsw). Name one and try again."),
                         {QStringLiteral("OK")}});
        return true;
    }
    if (QFileInfo::exists(firmware))
        return false;
    c_.alerts->show({QStringLiteral("IPSW Does Not Exist"),
                     QStringLiteral("The specified path for the IPSW does not exist at %1. Please "
                                    "check the path and try again.")
                         .arg(firmware),
                     {QStringLiteral("OK")}});
    return true;
}

void IdevicerestoreEngine::listDevices(Listing listing) {
    std::weak_ptr<int> alive = lifetime_;
    dispatch::main([this, alive, listing = std::move(listing)] {
        if (alive.expired())
            return;
        const auto devices = c_.registry();
        listing(devices ? configurator::listMacsInRegistry(*devices, usb::MacModelNames::shipped())
                        : configurator::DeviceList());
    });
}

void IdevicerestoreEngine::restore(const DevicePtr& device, OutputBlock output, ErrorBlock error,
                                   CompletedBlock completed) {
    if (device) {
        std::lock_guard lock(pendingMutex_);
        pendingStarts_.insert(device->ecid());
    }
    std::weak_ptr<int> alive = lifetime_;
    dispatch::main([=, this] {
        if (!alive.expired())
            start(device, output, error, completed);
    });
}

void IdevicerestoreEngine::start(const DevicePtr& device, const OutputBlock& output,
                                 const ErrorBlock& error, const CompletedBlock& completed) {
    if (device) {
        std::lock_guard lock(pendingMutex_);
        pendingStarts_.erase(device->ecid());
    }
    if (!device || device->ecid() == 0) {
        completed(device, true, QStringLiteral("invalid device"));
        return;
    }
    if (device->didCancel()) {
        completed(device, true, QStringLiteral("Restore Cancelled"));
        return;
    }
    const std::uint64_t ecid = device->ecid();
    // Two processes must never be given one Mac: the running one ends (and reports) first.
    if (const auto running = runs_.find(ecid); running != runs_.end())
        running->second->runner->stopProcess();
    const QString firmware = firmwarePath();
    if (!QFileInfo::exists(firmware)) {
        completed(device, true,
                  QStringLiteral("idevicerestore was given no firmware that exists (\"%1\")")
                      .arg(firmware));
        return;
    }
    const QString folder = c_.stateFolder + QStringLiteral("/idevicerestore");
    QDir().mkpath(folder);
    auto run = std::make_shared<Run>();
    run->device = device;
    run->workingFolder = std::make_unique<QTemporaryDir>(folder + QStringLiteral("/work-XXXXXX"));
    run->logFile = QStringLiteral("%1/%2-%3.log")
                       .arg(folder, hexEcid(ecid),
                            QDateTime::currentDateTimeUtc().toString(
                                QStringLiteral("yyyyMMdd'T'HHmmsszzz'Z'")));
    run->outputBlock = output;
    run->completed = completed;

    std::weak_ptr<Run> weakRun = run;
    std::weak_ptr<int> alive = lifetime_;
    auto onOutput = [weakRun](const QString& chunk) {
        ZMRLogDebug(QStringLiteral("idevicerestore: %1").arg(chunk));
        if (auto running = weakRun.lock())
            running->report(running->output.readOutput(chunk));
    };
    auto onError = [weakRun, error](const QString& chunk) {
        ZMRLogDebug(QStringLiteral("idevicerestore error output: %1").arg(chunk));
        if (auto running = weakRun.lock()) {
            running->report(running->output.readError(chunk));
            error(running->device, chunk);
        }
    };
    // The run lives in runs_ until its end has been handled; the runner holds it only weakly.
    auto onEnd = [this, alive, weakRun](std::int32_t) {
        auto ended = weakRun.lock();
        if (!ended)
            return;
        dispatch::main([this, alive, ended] {
            if (!alive.expired())
                end(ended, ended->runner->terminationStatus());
        });
    };
    run->runner = std::make_shared<ZMTaskWrapperWithBlocks>(
        nullptr, onEnd, onOutput, onError, command(c_.toolPath, ecid, run->logFile, firmware),
        *c_.clock);
    run->runner->setWorkingDirectory(run->workingFolder->path());
    runs_[ecid] = run;
    ZMRLogDebug(QStringLiteral("Restoring %1 with %2").arg(formatEcid(ecid), c_.toolPath));
    run->runner->startProcess();
    if (run->runner->pid() < 0) {
        runs_.erase(ecid);
        completed(device, true,
                  QStringLiteral("idevicerestore could not be started at \"%1\"").arg(c_.toolPath));
    }
}

void IdevicerestoreEngine::end(const std::shared_ptr<Run>& run, int status) {
    const DevicePtr& device = run->device;
    const std::uint64_t ecid = device->ecid();
    run->report(run->output.finish());
    if (const auto found = runs_.find(ecid); found != runs_.end() && found->second == run)
        runs_.erase(found);
    const bool succeeded = status == 0 && run->output.finished();
    QStringList errors = run->output.errorLines();
    QString reason = errors.isEmpty() ? QString() : errors.last();
    if (!succeeded && reason.isEmpty()) {
        reason = status == 0 ? QStringLiteral("idevicerestore ended without finishing the restore")
                             : QStringLiteral("idevicerestore ended with status %1").arg(status);
        // An error in words this reader does not know is still the engine's last line.
        if (const QString last = run->output.lastLine(); !last.isEmpty()) {
            reason += QStringLiteral("; its last line: ") + last;
            errors << last;
        }
    }
    errors_[ecid] = errors;
    statuses_[ecid] = status;
    firmwareVersions_[ecid] = run->output.firmware();
    logFiles_[ecid] = run->logFile;
    if (succeeded) {
        run->completed(device, false, QString(""));
        return;
    }
    // Written whatever showDebug says: the log is where a technician looks for the why.
    if (!device->didCancel())
        ZMRLogLevel0(QStringLiteral("Restore of %1 failed with status %2: %3 (its log: %4)")
                         .arg(hexEcid(ecid))
                         .arg(status)
                         .arg(errors.join(QStringLiteral(" / ")), run->logFile));
    run->completed(device, true, reason);
}

void IdevicerestoreEngine::cancel(const DevicePtr& device) {
    if (!device || device->ecid() == 0)
        return;
    if (const auto running = runs_.find(device->ecid()); running != runs_.end()) {
        // Set first, so the completion that follows can tell a cancel from a failure.
        device->setDidCancel(true);
        running->second->runner->stopProcess();
        return;
    }
    // A restore whose start is still on its way to the main thread sees the mark and never starts.
    std::lock_guard lock(pendingMutex_);
    if (pendingStarts_.count(device->ecid()))
        device->setDidCancel(true);
}

// The Mac was lost between two of the engine's stages; the firmware, the model and Apple's
// signature were fine, so the same restore can work from DFU mode again.
bool IdevicerestoreEngine::isTransient(const QString& reason) const {
    static const QStringList lost{
        QStringLiteral("Device did not reconnect"),
        QStringLiteral("Device failed to enter restore mode"),
        QStringLiteral("Unable to discover device mode"),
        QStringLiteral("No device found"),
        QStringLiteral("Device reconnected in"),
    };
    return std::any_of(lost.begin(), lost.end(),
                       [&](const QString& start) { return reason.startsWith(start); });
}

QStringList IdevicerestoreEngine::errorLines(std::uint64_t ecid) const {
    const auto found = errors_.find(ecid);
    return found == errors_.end() ? QStringList() : found->second;
}

std::optional<int> IdevicerestoreEngine::exitStatus(std::uint64_t ecid) const {
    const auto found = statuses_.find(ecid);
    return found == statuses_.end() ? std::nullopt : std::optional<int>(found->second);
}

QString IdevicerestoreEngine::firmwareVersion(std::uint64_t ecid) const {
    const auto found = firmwareVersions_.find(ecid);
    return found == firmwareVersions_.end() ? QString() : found->second;
}

QString IdevicerestoreEngine::logFile(std::uint64_t ecid) const {
    const auto found = logFiles_.find(ecid);
    return found == logFiles_.end() ? QString() : found->second;
}

}  // namespace engines
