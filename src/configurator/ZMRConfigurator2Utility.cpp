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
    : c_(std::move(collaborators)), restores_({c_.toolPath, c_.ptyPath, c_.platform, c_.clock}) {}

ZMRConfigurator2Utility::~ZMRConfigurator2Utility() = default;

bool ZMRConfigurator2Utility::isAC2Installed() const {
    return QFileInfo::exists(c_.toolPath);
}

ZMRConfigurator2Utility::Runner ZMRConfigurator2Utility::attachedDevicesWrapper() const {
    std::lock_guard lock(listingMutex_);
    return attachedDevicesWrapper_;
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
    if (device)
        restores_.noteStartPending(device->ecid());
    dispatch::main([=, this] {
        if (alive.expired())
            return;
        restores_.start(
            device, [this](bool* stop) { return customIPSWArgument(stop); }, outputBlock,
            errorBlock, completedBlock);
    });
}

void ZMRConfigurator2Utility::setUnreadableProgressObserver(UnreadableProgressObserver observer) {
    restores_.setUnreadableProgressObserver(std::move(observer));
}

void ZMRConfigurator2Utility::cancelRestore(const DevicePtr& device) {
    restores_.cancel(device);
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

bool ZMRConfigurator2Utility::usesCustomIPSW() const {
    return c_.settings->boolForKey(core::keys::useCustomIPSW);
}

QString ZMRConfigurator2Utility::customIPSWPath() const {
    return c_.settings->stringForKey(core::keys::customIPSWPath);
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
