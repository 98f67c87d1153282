#include "localport/FirmwareUpdater.h"

#include "localport/ZMRPrivHelperToolController.h"

#include "core/AppState.h"
#include "core/Dispatch.h"
#include "core/Log.h"
#include "core/NotificationCenter.h"
#include "localport/AutoDFU.h"

#include <QPointer>

namespace {

// Replies may come from any thread; the state they change belongs to the main thread, where
// the guard is also the only place the updater is deleted.
template <typename Action>
void onMainIfAlive(QPointer<FirmwareUpdater> updater, Action action) {
    dispatch::main([updater, action = std::move(action)] {
        if (updater)
            action(*updater);
    });
}

}  // namespace

FirmwareUpdater::Collaborators FirmwareUpdater::defaultCollaborators(core::AppState* appState) {
    Collaborators c;
    c.helper = []() -> LocalPortHelper& { return ZMRPrivHelperToolController::sharedHelper(); };
    c.autoDFU = &AutoDFU::shared();
    c.appState = appState;
    c.center = &core::NotificationCenter::defaultCenter();
    return c;
}

FirmwareUpdater::FirmwareUpdater(Collaborators collaborators, QObject* parent)
    : QObject(parent), c_(std::move(collaborators)) {
    if (c_.autoDFU)
        connect(c_.autoDFU, &AutoDFU::automaticDFURefused, this,
                &FirmwareUpdater::automaticDFURefused);
}

QString FirmwareUpdater::failureText(const HelperFailure& failure) {
    const QString& text = failure.kind == HelperFailure::Kind::notAuthorized ? notAuthorizedText
                          : failure.kind == HelperFailure::Kind::dismissed   ? dismissedText
                                                                             : unreachableText;
    return failure.detail.isEmpty() ? text : QStringLiteral("%1 (%2)").arg(text, failure.detail);
}

template <typename T, typename Signal>
void FirmwareUpdater::write(T FirmwareUpdater::*field, T value, Signal changed) {
    if (this->*field == value)
        return;
    this->*field = std::move(value);
    emit(this->*changed)(this->*field);
}

void FirmwareUpdater::gogoDFUMode() {
    c_.center->post(lastRequestedStayInFrontNotification);
    LocalPortHelper& helper = c_.helper();
    helper.installToolIfNecessary();
    QPointer<FirmwareUpdater> self(this);
    helper.enterDFUMode(
        [self](std::int64_t status) {
            onMainIfAlive(self,
                          [status](FirmwareUpdater& updater) { updater.dfuReplyReceived(status); });
        },
        [self](const HelperFailure& failure) {
            onMainIfAlive(
                self, [failure](FirmwareUpdater& updater) { updater.dfuRequestFailed(failure); });
        });
}

void FirmwareUpdater::dfuReplyReceived(std::int64_t status) {
    if (status != 0) {
        // The log format names the line's source by its original path, not by this file; keep it.
        ZMRLogAtLevel1(QStringLiteral("DFU mode error: %1").arg(status),
                       QStringLiteral("Views/LocalDFUGroupView"), __LINE__,
                       QStringLiteral("gogoDFUMode()"));
        write(&FirmwareUpdater::showDFUError_, true, &FirmwareUpdater::showDFUErrorChanged);
        c_.center->post(cancelStayInFrontNotification);
    }
    write(&FirmwareUpdater::dfuReplied_, true, &FirmwareUpdater::dfuRepliedChanged);
    emit dfuAnswered(status);
}

// No DFU mode is coming, so nothing should hold the application in front for it.
void FirmwareUpdater::dfuRequestFailed(const HelperFailure& failure) {
    ZMRLogLevel1(QStringLiteral("DFU mode request failed: %1").arg(failureText(failure)));
    showHelperFailure(failure);
    c_.center->post(cancelStayInFrontNotification);
    write(&FirmwareUpdater::dfuReplied_, true, &FirmwareUpdater::dfuRepliedChanged);
    emit dfuFailed(failure);
}

void FirmwareUpdater::rebootRequestFailed(const HelperFailure& failure) {
    ZMRLogLevel1(QStringLiteral("Restart request failed: %1").arg(failureText(failure)));
    showHelperFailure(failure);
    emit rebootFailed(failure);
}

// The cycle switched itself off rather than ask again every second.
void FirmwareUpdater::automaticDFURefused(const HelperFailure& failure) {
    write(&FirmwareUpdater::isAutoDFUOn_, false, &FirmwareUpdater::isAutoDFUOnChanged);
    showHelperFailure(failure);
}

void FirmwareUpdater::showHelperFailure(const HelperFailure& failure) {
    helperErrorText_ = failureText(failure);
    // A second failure while the alert is up replaces its text without a second alert.
    if (showHelperError_)
        return;
    showHelperError_ = true;
    emit showHelperErrorChanged(true);
}

void FirmwareUpdater::restart() {
    LocalPortHelper& helper = c_.helper();
    helper.installToolIfNecessary();
    QPointer<FirmwareUpdater> self(this);
    helper.reboot(
        [self](std::int64_t status) {
            onMainIfAlive(self, [status](FirmwareUpdater& updater) {
                if (status != 0)
                    updater.write(&FirmwareUpdater::showRebootError_, true,
                                  &FirmwareUpdater::showRebootErrorChanged);
                emit updater.rebootAnswered(status);
            });
        },
        [self](const HelperFailure& failure) {
            onMainIfAlive(self, [failure](FirmwareUpdater& updater) {
                updater.rebootRequestFailed(failure);
            });
        });
}

void FirmwareUpdater::recovery() {
    write(&FirmwareUpdater::showModal_, true, &FirmwareUpdater::showModalChanged);
    c_.appState->setIsRunning(true);
    c_.appState->setProgressMessage(recoveryProgressText);
    write(&FirmwareUpdater::updateMessage_, recoveryProgressText,
          &FirmwareUpdater::updateMessageChanged);
    write(&FirmwareUpdater::shouldDisableLocalButtons_, true,
          &FirmwareUpdater::shouldDisableLocalButtonsChanged);
    c_.helper().installToolIfNecessary();
    // The reboots are spaced by whole-second sleeps, which must never block the main thread.
    QPointer<FirmwareUpdater> self(this);
    AutoDFU* autoDFU = c_.autoDFU;
    dispatch::global([self, autoDFU] {
        autoDFU->recoveryMode(
            [self](const QString& message) {
                onMainIfAlive(self, [message](FirmwareUpdater& updater) {
                    updater.write(&FirmwareUpdater::updateMessage_, message,
                                  &FirmwareUpdater::updateMessageChanged);
                });
            },
            [self] {
                onMainIfAlive(self, [](FirmwareUpdater& updater) { updater.recoveryEnded(); });
            });
    });
}

void FirmwareUpdater::recoveryEnded() {
    c_.appState->setProgressMessage(QString());
    write(&FirmwareUpdater::showModal_, false, &FirmwareUpdater::showModalChanged);
    c_.appState->setIsRunning(false);
    write(&FirmwareUpdater::shouldDisableLocalButtons_, false,
          &FirmwareUpdater::shouldDisableLocalButtonsChanged);
    emit recoveryFinished();
}

void FirmwareUpdater::setIsAutoDFUOn(bool on) {
    write(&FirmwareUpdater::isAutoDFUOn_, on, &FirmwareUpdater::isAutoDFUOnChanged);
    c_.autoDFU->setAutomaticDFU(on);
}

void FirmwareUpdater::setIsAutoRestoreNotificationOn(bool on) {
    write(&FirmwareUpdater::isAutoRestoreNotificationOn_, on,
          &FirmwareUpdater::isAutoRestoreNotificationOnChanged);
    // The restore queue hands successful restores to the cycle only while this is on.
    c_.appState->setIsAutoRestoreOn(on);
    if (!on)
        write(&FirmwareUpdater::restoredDevices_, QStringList(),
              &FirmwareUpdater::restoredDevicesChanged);
    c_.autoDFU->setRestoreAutomatically(on);
}

void FirmwareUpdater::setIsBootToRecoveryOn(bool on) {
    c_.appState->setIsBootToRecoveryOn(on);
    c_.autoDFU->setShouldBootToRecoveryAfterRestore(on);
}

void FirmwareUpdater::appendRestoredDevice(const QString& device) {
    restoredDevices_.append(device);
    emit restoredDevicesChanged(restoredDevices_);
}

void FirmwareUpdater::dismissDFUError() {
    write(&FirmwareUpdater::showDFUError_, false, &FirmwareUpdater::showDFUErrorChanged);
}

void FirmwareUpdater::dismissRebootError() {
    write(&FirmwareUpdater::showRebootError_, false, &FirmwareUpdater::showRebootErrorChanged);
}

void FirmwareUpdater::dismissHelperError() {
    write(&FirmwareUpdater::showHelperError_, false, &FirmwareUpdater::showHelperErrorChanged);
}
