#include "restore/RestoreSession.h"

#include "restore/EventNotification.h"
#include "restore/RestoreQueue.h"
#include "restore/SoundPlayer.h"

#include "configurator/ZMRConfigurator2Utility.h"
#include "core/Alerts.h"
#include "core/Clock.h"
#include "core/RealHomeFolder.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"
#include "records/RestoreRecorder.h"

#include <QDir>
#include <QStorageInfo>

namespace restore {
namespace {

// Where Apple Configurator keeps the firmware it downloads, which is what fills a disk.
const QString firmwareCacheSuffix = QStringLiteral(
    "/Library/Group Containers/K36BKF7T3D.group.com.apple.configurator/Library/Caches/Firmware");

}  // namespace

RestoreSession::Collaborators RestoreSession::defaultCollaborators(core::AppState* appState,
                                                                   RestoreEngine& engine) {
    Collaborators c;
    c.engine = &engine;
    c.settings = &core::Settings::shared();
    c.alerts = &core::Alerts::shared();
    c.clock = &core::Clock::system();
    c.configurator = &ZMRConfigurator2Utility::sharedManager();
    c.appState = appState;
    c.events = &EventNotification::shared();
    c.sounds = &SoundPlayer::shared();
    c.recorder = &records::RestoreRecorder::shared();
    c.homeFolder = core::realHomeFolder();
    c.firmwareCachePath = c.homeFolder + firmwareCacheSuffix;
    return c;
}

RestoreSession::RestoreSession(Collaborators collaborators, QObject* parent)
    : QObject(parent), c_(std::move(collaborators)) {
    qRegisterMetaType<restore::History>();
    queue_ = std::make_unique<RestoreQueue>(*this);
    restoreTimer_.setInterval(1000);
    connect(&restoreTimer_, &QTimer::timeout, this, &RestoreSession::restoreTimerFired);
    refreshFreeSpace();
}

RestoreSession::~RestoreSession() = default;

bool RestoreSession::restore(const DeviceList& devices) {
    if (!c_.engine->isInstalled()) {
        showACNotInstalledError_ = true;
        c_.alerts->show(c_.engine->notInstalledAlert());
        return false;
    }
    const bool allInDFU = std::all_of(devices.begin(), devices.end(),
                                      [](const DevicePtr& device) { return device->inDFU(); });
    if (!allInDFU) {
        showNotInDFUError_ = true;
        c_.alerts->show({QStringLiteral("Devices Not in DFU Mode"),
                         QStringLiteral("All devices must be in DFU mode to restore. Please select "
                                        "only devices in DFU mode."),
                         {QStringLiteral("OK")}});
        return false;
    }
    if (c_.engine->refusesFirmware())
        return false;
    if (devices.isEmpty())
        return false;
    startBatch();
    queue_->submit(devices);
    return true;
}

void RestoreSession::cancel(const DeviceList& tableDevices) {
    for (const DevicePtr& device : tableDevices) {
        if (!device->isRestoring())
            continue;
        setDeviceStatus(device, QStringLiteral("Cancelling restore..."));
        c_.engine->cancel(device);
    }
    setIsCancelling(true);
    queue_->wakeWaiting();
}

void RestoreSession::startBatch() {
    ++batchesRunning_;
    batchFailed_ = false;
    if (batchesRunning_ == 1) {
        minutesElapsed_ = 0;
        secondsElapsed_ = 0;
        restoreTimer_.start();
        emit restoreTimeChanged(restoreTimeText());
        emit batchRunningChanged(true);
    }
    if (!preventTermination_) {
        preventTermination_ = true;
        emit preventTerminationChanged(true);
    }
    dismissRestoreComplete();
}

void RestoreSession::finishBatch(bool failed, bool cancelled) {
    batchFailed_ = batchFailed_ || failed;
    if (--batchesRunning_ > 0) {
        emit batchFinished(failed, cancelled);
        return;
    }
    restoreTimer_.stop();
    preventTermination_ = false;
    emit preventTerminationChanged(false);
    emit batchRunningChanged(false);
    if (!failed && !cancelled) {
        shouldShowRestoreComplete_ = true;
        emit restoreCompleteChanged(true);
    }
    refreshFreeSpace();
    emit batchFinished(failed, cancelled);
}

QString RestoreSession::restoreTimeText() const {
    return QString::asprintf("Restore Time: %02i:%02i", minutesElapsed_, secondsElapsed_);
}

void RestoreSession::restoreTimerFired() {
    if (++secondsElapsed_ == 60) {
        secondsElapsed_ = 0;
        ++minutesElapsed_;
    }
    emit restoreTimeChanged(restoreTimeText());
}

QString RestoreSession::freeSpaceText() const {
    return QString::asprintf("Free Space: %.1f GB", freeDiskSpace_);
}

void RestoreSession::refreshFreeSpace() {
    const bool cacheExists = QDir(c_.firmwareCachePath).exists();
    const QString path = cacheExists ? c_.firmwareCachePath : c_.homeFolder;
    const QStorageInfo volume(path);
    freeDiskSpace_ = volume.isValid() ? static_cast<double>(volume.bytesAvailable()) / 1e9 : 0;
    freeSpaceVolume_ = cacheExists
                           ? QStringLiteral("the volume of Apple Configurator's firmware cache (%1)")
                                 .arg(path)
                           : QStringLiteral("the volume of the home folder (%1)").arg(path);
    emit freeSpaceChanged(freeSpaceText());
}

bool RestoreSession::shouldRemoveCache() const {
    return c_.settings->boolForKey(core::keys::removeACCache);
}

void RestoreSession::setShouldRemoveCache(bool remove) {
    c_.settings->setValue(core::keys::removeACCache, remove);
}

void RestoreSession::dismissRestoreError() {
    if (!showRestoreError_)
        return;
    showRestoreError_ = false;
    emit restoreErrorChanged(false, errorMessage_);
}

void RestoreSession::dismissRestoreComplete() {
    if (!shouldShowRestoreComplete_)
        return;
    shouldShowRestoreComplete_ = false;
    emit restoreCompleteChanged(false);
}

void RestoreSession::appendHistory(const DevicePtr& device, const QString& message) {
    history_.append(
        History::make(device->ecid(), device->serialNumber(), c_.clock->now(), message));
    emit historyAppended(history_.last());
}

void RestoreSession::setDeviceStatus(const DevicePtr& device, const QString& status) {
    device->setRestoreStatus(status);
    emit deviceStatusChanged(device);
}

void RestoreSession::setIsCancelling(bool cancelling) {
    isCancelling_.store(cancelling);
    emit isCancellingChanged(cancelling);
}

void RestoreSession::countRestored() { emit restoredDevicesChanged(++restoredDevices_); }

void RestoreSession::setRestoreError(const QString& message) {
    showRestoreError_ = true;
    errorMessage_ = message;
    emit restoreErrorChanged(true, message);
}

}  // namespace restore
