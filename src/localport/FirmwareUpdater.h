#pragma once

#include "usb/LocalPortHelper.h"

#include <QObject>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <functional>

class AutoDFU;

namespace core {
class AppState;
}
namespace core {
class NotificationCenter;
}

// The actions and switches of the host's own DFU port, without a widget: DFU, restart and
// recovery of the Mac cabled to that port, and the two switches of the automatic cycle. Lives on
// the main thread; every change of its state is announced by a signal, so a view only binds to
// it, and helper replies are brought to the main thread before they touch it.
class FirmwareUpdater final : public QObject {
    Q_OBJECT

  public:
    static inline const QString lastRequestedStayInFrontNotification =
        QStringLiteral("LastRequestedStayInFrontNotification");
    static inline const QString cancelStayInFrontNotification =
        QStringLiteral("CancelStayInFrontNotification");
    static inline const QString dfuErrorText = QStringLiteral(
        "Error putting device in DFU mode. Please verify the target device is "
        "plugged into the DFU port on this Mac with a USB-C cable.");
    static inline const QString rebootErrorText = QStringLiteral(
        "Error rebooting device. Please verify the target device is plugged into "
        "the DFU port on this Mac with a USB-C cable.");
    static inline const QString recoveryProgressText =
        QStringLiteral("Restarting to recovery mode...");
    // When the helper gave no status at all.
    static inline const QString notAuthorizedText = QStringLiteral(
        "Not authorised to use the DFU port on this Mac. An administrator must allow Tarvel's "
        "helper before the device on that port can be put into DFU mode or restarted.");
    static inline const QString dismissedText = QStringLiteral(
        "The administrator password prompt was dismissed, so nothing was sent to the device on "
        "the DFU port on this Mac.");
    static inline const QString unreachableText = QStringLiteral(
        "The helper for the DFU port on this Mac did not answer, so the device "
        "on that port may not have received the request.");

    // The alert text for a failure, followed by what the bus or the client said.
    static QString failureText(const HelperFailure& failure);

    struct Collaborators {
        // Asked only when an action runs, so showing the port installs nothing.
        std::function<LocalPortHelper&()> helper;
        AutoDFU* autoDFU = nullptr;
        core::AppState* appState = nullptr;
        core::NotificationCenter* center = nullptr;
    };

    // The shared helper client, the shared cycle and the default centre.
    static Collaborators defaultCollaborators(core::AppState* appState);

    explicit FirmwareUpdater(Collaborators collaborators, QObject* parent = nullptr);

    // DFU mode for the Mac on the port, keeping the application in front while it enters it.
    void gogoDFUMode();
    void restart();
    // Five reboots in a row, off the main thread, with the progress in updateMessage.
    void recovery();

    // "Automatic DFU" and "Restore Automatically", and starting into recovery after a restore.
    void setIsAutoDFUOn(bool on);
    void setIsAutoRestoreNotificationOn(bool on);
    void setIsBootToRecoveryOn(bool on);
    // A Mac the automatic cycle restored, shown with the group until the switch goes off.
    void appendRestoredDevice(const QString& device);

    void dismissDFUError();
    void dismissRebootError();
    void dismissHelperError();

    bool showModal() const { return showModal_; }
    QString updateMessage() const { return updateMessage_; }
    bool showDFUError() const { return showDFUError_; }
    bool showRebootError() const { return showRebootError_; }
    bool showHelperError() const { return showHelperError_; }
    QString helperErrorText() const { return helperErrorText_; }
    bool isAutoDFUOn() const { return isAutoDFUOn_; }
    bool isAutoRestoreNotificationOn() const { return isAutoRestoreNotificationOn_; }
    bool shouldDisableLocalButtons() const { return shouldDisableLocalButtons_; }
    bool dfuReplied() const { return dfuReplied_; }
    const QStringList& restoredDevices() const { return restoredDevices_; }

  signals:
    void showModalChanged(bool show);
    void updateMessageChanged(const QString& message);
    void showDFUErrorChanged(bool show);
    void showRebootErrorChanged(bool show);
    // The helper gave no status: refused, prompt dismissed, or no answer (helperErrorText).
    void showHelperErrorChanged(bool show);
    void isAutoDFUOnChanged(bool on);
    void isAutoRestoreNotificationOnChanged(bool on);
    void shouldDisableLocalButtonsChanged(bool disable);
    void dfuRepliedChanged(bool replied);
    void restoredDevicesChanged(const QStringList& devices);
    // The end of each request, for callers that wait for it: the helper's status or why none came.
    void dfuAnswered(std::int64_t status);
    void dfuFailed(const HelperFailure& failure);
    void rebootAnswered(std::int64_t status);
    void rebootFailed(const HelperFailure& failure);
    void recoveryFinished();

  private:
    void dfuReplyReceived(std::int64_t status);
    void dfuRequestFailed(const HelperFailure& failure);
    void rebootRequestFailed(const HelperFailure& failure);
    void automaticDFURefused(const HelperFailure& failure);
    void showHelperFailure(const HelperFailure& failure);
    void recoveryEnded();
    template <typename T, typename Signal>
    void write(T FirmwareUpdater::*field, T value, Signal changed);

    Collaborators c_;
    bool showModal_ = false;
    QString updateMessage_;
    bool showDFUError_ = false;
    bool showRebootError_ = false;
    bool showHelperError_ = false;
    QString helperErrorText_;
    bool isAutoDFUOn_ = false;
    bool isAutoRestoreNotificationOn_ = false;
    bool shouldDisableLocalButtons_ = false;
    bool dfuReplied_ = false;
    QStringList restoredDevices_;
};
