#include "configurator/ZMRConfigurator2Utility.h"

#include "core/BundleInfo.h"
#include "core/Dispatch.h"
#include "core/Log.h"
#include "core/SettingsKeys.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>

#include <set>

using configurator::DeviceList;

namespace {

// Enough of a broken listing to recognise what the tool printed instead.
constexpr qsizetype kShownListingStart = 300;
// A listing this long is not a bench's: it is refused rather than read as an empty one.
constexpr qsizetype kListingBound = 64 * 1024 * 1024;

QString defaultToolPath() {
    const QString named = qEnvironmentVariable("TARVEL_CFGUTIL");
    return named.isEmpty() ? QString::fromUtf8(configurator::appleToolPath) : named;
}

QString defaultPtyPath() {
    const QString folder =
        QCoreApplication::instance() ? QCoreApplication::applicationDirPath() : QString();
    return folder + QStringLiteral("/tarvel-pty");
}

void openInBrowser(const QUrl& url) {
#ifdef Q_OS_MACOS
    QProcess::startDetached(QStringLiteral("open"), {url.toString()});
#else
    QProcess::startDetached(QStringLiteral("xdg-open"), {url.toString()});
#endif
}

QString failureMessage(int status) {
    return QStringLiteral(
               "There was an error restoring the device with status %1. Please check log for "
               "error message. You can also try restoring with Apple Configurator to help "
               "identify issues.")
        .arg(status);
}

// How many of the tool's last error lines a failed restore keeps.
constexpr qsizetype kKeptErrorLines = 5;


}  // namespace

ZMRConfigurator2Utility::Collaborators ZMRConfigurator2Utility::defaultCollaborators() {
    Collaborators c;
    c.settings = &core::Settings::shared();
    c.alerts = &core::Alerts::shared();
    c.clock = &core::Clock::wall();  // only the runners' grace for a child process
    c.toolPath = defaultToolPath();
    c.ptyPath = defaultPtyPath();
    c.usbLookups = configurator::systemUsbLookups();
    c.cachePlaces = configurator::CachePlaces::system();
    c.remover = configurator::fileSystemRemover();
    c.openURL = openInBrowser;
    return c;
}

ZMRConfigurator2Utility& ZMRConfigurator2Utility::sharedManager() {
    static ZMRConfigurator2Utility instance(defaultCollaborators());
    return instance;
}

ZMRConfigurator2Utility::ZMRConfigurator2Utility(Collaborators collaborators)
    : c_(std::move(collaborators)) {}

ZMRConfigurator2Utility::~ZMRConfigurator2Utility() = default;

bool ZMRConfigurator2Utility::isAC2Installed() const {
    return QFileInfo::exists(c_.toolPath);
}

ZMRConfigurator2Utility::Runner ZMRConfigurator2Utility::attachedDevicesWrapper() const {
    std::lock_guard lock(listingMutex_);
    return attachedDevicesWrapper_;
}

ZMRConfigurator2Utility::Runner ZMRConfigurator2Utility::task(std::uint64_t ecid) const {
    const auto found = tasks_.find(ecid);
    return found == tasks_.end() ? nullptr : found->second;
}

void ZMRConfigurator2Utility::attachedDevicesWithCallback(DeviceListCallback callback) {
    if (!isAC2Installed()) {
        callback({});
        return;
    }
    std::shared_ptr<configurator::UsbLookups> usb = c_.usbLookups();
    auto records = std::make_shared<DeviceList>();
    auto output = std::make_shared<QString>();
    {
        std::lock_guard lock(listingMutex_);
        // A runner whose child has not launched yet does not count: two quick calls both pass,
        // and the second runner is the one both queued starts start.
        if (attachedDevicesWrapper_ && attachedDevicesWrapper_->isRunning()) {
            callback({});
            return;
        }
        attachedDevicesWrapper_ = std::make_shared<ZMTaskWrapperWithBlocks>(
            [] { ZMRLogDebug(QStringLiteral("Starting Apple Configurator")); },
            [this, alive = std::weak_ptr<int>(lifetime_), records, output, callback](std::int32_t) {
                ZMRLogDebug(QStringLiteral("Apple Configurator completed"));
                if (!alive.expired())
                    noteListingOutput(*output);
                callback(*records);
            },
            [records, output, usb](const QString& chunk) {
                // Past the bound the listing is refused whole; what came is kept only to say so.
                if (output->size() < kListingBound)
                    output->append(chunk.left(kListingBound));
                records->append(configurator::parseDeviceListing(chunk, *usb));
            },
            [](const QString& chunk) { ZMRLogDebug(QStringLiteral("> %1").arg(chunk)); },
            QStringList{c_.toolPath, QStringLiteral("--format"), QStringLiteral("plist"),
                        QStringLiteral("list")},
            *c_.clock);
        // The listing is one document, read whole however it is written.
        attachedDevicesWrapper_->handOverOutputWhole();
    }
    std::weak_ptr<int> alive = lifetime_;
    dispatch::main([this, alive] {
        if (alive.expired())
            return;
        ZMRLogDebug(QStringLiteral("Starting Apple Configurator to get list of available devices"));
        if (Runner runner = attachedDevicesWrapper())
            runner->startProcess();
    });
}

void ZMRConfigurator2Utility::noteListingOutput(const QString& output) {
    std::optional<QString> problem;
    if (output.size() >= kListingBound) {
        problem = output.left(kShownListingStart) +
                  QStringLiteral("… (%1 MiB or more: too large to read)")
                      .arg(kListingBound / (1024 * 1024));
        ZMRLogLevel0(QStringLiteral("Apple Configurator's device list is too large to read "
                                    "(%1 MiB or more)")
                         .arg(kListingBound / (1024 * 1024)));
    } else if (!output.trimmed().isEmpty() && !configurator::isReadableDeviceListing(output)) {
        problem = output.left(kShownListingStart);
        ZMRLogLevel0(
            QStringLiteral("Apple Configurator's device list could not be read; it began: %1")
                .arg(*problem));
    }
    std::lock_guard lock(listingMutex_);
    unreadableListingOutput_ = problem;
}

std::optional<QString> ZMRConfigurator2Utility::unreadableListingOutput() const {
    std::lock_guard lock(listingMutex_);
    return unreadableListingOutput_;
}

std::optional<QString> ZMRConfigurator2Utility::customIPSWArgument(bool* stop) {
    *stop = false;
    if (!c_.settings->boolForKey(core::keys::useCustomIPSW))
        return std::nullopt;
    if (!customIPSWExists()) {
        showIPSWError();
        *stop = true;
        return std::nullopt;
    }
    return c_.settings->stringForKey(core::keys::customIPSWPath);
}

void ZMRConfigurator2Utility::restoreWithAC2ForDevice(DevicePtr device,
                                                      RestoreOutputBlock outputBlock,
                                                      RestoreErrorBlock errorBlock,
                                                      RestoreCompletedBlock completedBlock) {
    std::weak_ptr<int> alive = lifetime_;
    if (device) {
        std::lock_guard lock(pendingMutex_);
        pendingStarts_.insert(device->ecid());
    }
    dispatch::main([=, this] {
        if (alive.expired())
            return;
        if (device) {
            std::lock_guard lock(pendingMutex_);
            pendingStarts_.erase(device->ecid());
        }
        startDeviceRestore(device, outputBlock, errorBlock, completedBlock);
    });
}

void ZMRConfigurator2Utility::startDeviceRestore(const DevicePtr& device,
                                                 const RestoreOutputBlock& outputBlock,
                                                 const RestoreErrorBlock& errorBlock,
                                                 const RestoreCompletedBlock& completedBlock) {
    if (!device || device->ecid() == 0) {
        completedBlock(nullptr, true, QStringLiteral("invalid device"));
        return;
    }
    const std::uint64_t ecid = device->ecid();
    // Cancelled before its start came round: it never starts.
    if (device->didCancel()) {
        completedBlock(device, true, QStringLiteral("Restore Cancelled"));
        return;
    }
    // The stopped run's end handling removes it from tasks and reports it as failed.
    if (Runner running = task(ecid))
        running->stopProcess();

    bool stop = false;
    const std::optional<QString> custom = customIPSWArgument(&stop);
    if (stop)
        return;
    const QStringList command =
        configurator::deviceRestoreCommand(c_.platform, c_.toolPath, c_.ptyPath, ecid, custom);
    ZMRLogDebug(QStringLiteral("Restoring"));

    auto self = std::make_shared<std::weak_ptr<ZMTaskWrapperWithBlocks>>();
    std::weak_ptr<int> alive = lifetime_;
    auto errors = std::make_shared<QStringList>();
    auto keepErrors = [errors](const QStringList& lines) {
        *errors += lines;
        if (errors->size() > kKeptErrorLines)
            *errors = errors->mid(errors->size() - kKeptErrorLines);
    };
    auto end = [this, alive, self, ecid, device, completedBlock, errors](std::int32_t) {
        Runner runner = self->lock();
        if (!alive.expired()) {
            tasks_.erase(ecid);
            restoreErrors_[ecid] = *errors;
        }
        dispatch::main([this, alive, runner, device, completedBlock, errors, ecid] {
            const int status = runner ? runner->terminationStatus() : -1;
            if (!alive.expired())
                restoreStatuses_[ecid] = status;
            if (status == 0) {
                completedBlock(device, false, QString(""));
                return;
            }
            // Written whatever showDebug says: the log is where a technician looks for the why.
            if (!device->didCancel())
                ZMRLogLevel0(QStringLiteral("Restore of %1 failed with status %2: %3")
                                 .arg(QString::number(ecid, 16).toUpper())
                                 .arg(status)
                                 .arg(errors->isEmpty() ? QStringLiteral("the tool gave no reason")
                                                        : errors->join(QStringLiteral(" / "))));
            completedBlock(device, true, failureMessage(status));
        });
    };
    auto warned = std::make_shared<std::set<configurator::ProgressLineProblem>>();
    auto warnUnreadable = [this, alive, device, warned](const QString& chunk) {
        for (const auto& unreadable : configurator::unreadableProgressLines(chunk)) {
            if (!warned->insert(unreadable.problem).second)
                continue;
            const QString warning =
                configurator::unreadableProgressWarning(device->ecid(), unreadable);
            ZMRLogLevel1(warning);
            if (!alive.expired() && unreadableProgressObserver_)
                unreadableProgressObserver_(device, warning);
        }
    };
    auto output = [device, outputBlock, keepErrors, warnUnreadable](const QString& chunk) {
        ZMRLogDebug(QStringLiteral("output-->%1").arg(chunk));
        ZMRLogDebug(chunk);
        keepErrors(configurator::errorLinesOf(chunk, false));
        warnUnreadable(chunk);
        const std::optional<configurator::RestoreProgress> progress =
            configurator::parseRestoreProgress(chunk);
        if (!progress)
            return;
        outputBlock(device, progress->step, progress->progress);
        device->setRestoreStatus(configurator::restoreStatusText(progress->progress));
    };
    auto errorOutput = [device, errorBlock, keepErrors](const QString& chunk) {
        ZMRLogDebug(QStringLiteral("errorOutputBlock: %1").arg(chunk));
        keepErrors(configurator::errorLinesOf(chunk, true));
        errorBlock(device, chunk);
    };
    auto runner = std::make_shared<ZMTaskWrapperWithBlocks>(nullptr, end, output, errorOutput,
                                                            command, *c_.clock);
    *self = runner;
    tasks_[ecid] = runner;
    runner->startProcess();
}

std::optional<int> ZMRConfigurator2Utility::restoreExitStatus(std::uint64_t ecid) const {
    const auto found = restoreStatuses_.find(ecid);
    return found == restoreStatuses_.end() ? std::nullopt : std::optional<int>(found->second);
}

QStringList ZMRConfigurator2Utility::restoreErrorLines(std::uint64_t ecid) const {
    const auto found = restoreErrors_.find(ecid);
    return found == restoreErrors_.end() ? QStringList() : found->second;
}

void ZMRConfigurator2Utility::setUnreadableProgressObserver(UnreadableProgressObserver observer) {
    unreadableProgressObserver_ = std::move(observer);
}

void ZMRConfigurator2Utility::cancelRestore(const DevicePtr& device) {
    if (!device || device->ecid() == 0)
        return;
    if (Runner runner = task(device->ecid())) {
        // Set first, so the completion that follows can tell a cancel from a failure.
        device->setDidCancel(true);
        runner->stopProcess();
        return;
    }
    // A restore whose start is still on its way to the main thread sees the mark and never starts.
    std::lock_guard lock(pendingMutex_);
    if (pendingStarts_.count(device->ecid()))
        device->setDidCancel(true);
}

void ZMRConfigurator2Utility::cancelOperation() {
    for (const Runner& runner : {attachedDevicesWrapper(), taskWrapper_}) {
        if (runner && runner->isRunning())
            runner->terminate();
    }
}

void ZMRConfigurator2Utility::restoreWithAC2() {
    bool stop = false;
    const std::optional<QString> custom = customIPSWArgument(&stop);
    if (stop)
        return;
    const QStringList command = configurator::singleRestoreCommand(c_.toolPath, custom);
    ZMRLogDebug(QStringLiteral("Restoring"));
    std::weak_ptr<int> alive = lifetime_;
    auto end = [this, alive](std::int32_t) {
        if (alive.expired() || !taskWrapper_ || taskWrapper_->terminationStatus() == 0)
            return;
        const int choice =
            c_.alerts->show({QStringLiteral("Error Restoring Device"),
                             QStringLiteral("There was an error restoring the device."),
                             {QStringLiteral("OK"), QStringLiteral("More Info")}});
        if (choice == 1 && c_.openURL)
            c_.openURL(QUrl(core::BundleInfo::shared().troubleshootingGuide()));
    };
    taskWrapper_ = std::make_shared<ZMTaskWrapperWithBlocks>(
        [] { ZMRLogDebug(QStringLiteral("starting restore")); }, end,
        [](const QString& chunk) { ZMRLogDebug(QStringLiteral("outputBlock: %1").arg(chunk)); },
        nullptr, command, *c_.clock);
    taskWrapper_->startProcess();
}

bool ZMRConfigurator2Utility::customIPSWExists() const {
    const QString path = c_.settings->stringForKey(core::keys::customIPSWPath);
    return !path.isEmpty() && QFileInfo::exists(path);
}

void ZMRConfigurator2Utility::showIPSWError() {
    c_.alerts->show({QStringLiteral("IPSW Does Not Exist"),
                     QStringLiteral("The specified path for the IPSW does not exist at %1. Please "
                                    "check the path and try again.")
                         .arg(c_.settings->stringForKey(core::keys::customIPSWPath)),
                     {QStringLiteral("OK")}});
}

void ZMRConfigurator2Utility::clearAC2CacheWithCompletedBlock(
    const configurator::CacheCleanupCompletion& completed) {
    configurator::clearAC2Cache(c_.cachePlaces, c_.remover, completed);
}
