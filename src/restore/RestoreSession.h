#pragma once

#include "restore/History.h"
#include "restore/RestoreEngine.h"

#include "configurator/AC2Device.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QTimer>

#include <atomic>
#include <functional>
#include <memory>

class ZMRConfigurator2Utility;

namespace core {
class Alerts;
class AppState;
class Clock;
class Settings;
}  // namespace core

namespace records {
class RestoreRecorder;
}

namespace restore {

class EventNotification;
class RestoreQueue;
class SoundPlayer;

using DevicePtr = std::shared_ptr<AC2Device>;
using DeviceList = QList<DevicePtr>;

// What the device table shows about restores, without a widget: the history, the restored
// count, the cancel and error markers, the restore timer and the free space, and the two
// refusals of the Restore action. It lives on the main thread; every change is made there and
// announced by a signal, so a view only binds to it.
class RestoreSession : public QObject {
    Q_OBJECT

  public:
    // The host DFU port's automatic cycle, told from the queue's thread when a batch starts and
    // when a Mac has restored with automatic restore on. Empty on a bench of hub ports.
    struct HostPortCycle {
        std::function<void()> batchStarted;
        std::function<void()> macRestored;
    };

    // Puts a Mac back into DFU mode through the hub port it is on, for a restore the engine lost
    // on its way. `isOnHubPort` answers at once; `reenterDfu` calls back on the main thread with
    // whether the Mac is in DFU mode again. Empty: no retries.
    struct HubRetry {
        std::function<bool(const DevicePtr& device)> isOnHubPort;
        std::function<void(const DevicePtr& device, std::function<void(bool inDfu)> done)>
            reenterDfu;
    };

    struct Collaborators {
        core::Settings* settings = nullptr;
        core::Alerts* alerts = nullptr;
        core::Clock* clock = nullptr;  // history dates and the pause between starts
        RestoreEngine* engine = nullptr;
        // Apple Configurator's cache, cleared before each start when the user asks for it.
        ZMRConfigurator2Utility* configurator = nullptr;
        core::AppState* appState = nullptr;
        EventNotification* events = nullptr;
        SoundPlayer* sounds = nullptr;
        HostPortCycle hostPort;
        HubRetry hubRetry;
        // Keeps every outcome for good; none when null.
        records::RestoreRecorder* recorder = nullptr;
        QString firmwareCachePath;  // the free-space label measures its volume when it exists
        QString homeFolder;         // ...and the home folder's otherwise
    };

    // The shared services, the shared restore records, and Apple Configurator's firmware cache
    // below the real home folder; no host port cycle, which its owner hands in.
    static Collaborators defaultCollaborators(core::AppState* appState, RestoreEngine& engine);

    explicit RestoreSession(Collaborators collaborators, QObject* parent = nullptr);
    ~RestoreSession() override;

    // The Restore button. Refuses with an alert, starting nothing, when the engine is missing, a
    // device is not in DFU mode or the firmware cannot be found; answers whether the batch was
    // queued.
    bool restore(const DeviceList& devices);
    // The Cancel button, with every device of the table: those restoring are stopped; those of
    // the batch that have not started yet are not started.
    void cancel(const DeviceList& tableDevices);

    const QList<History>& history() const { return history_; }
    int restoredDevices() const { return restoredDevices_; }
    bool isCancelling() const { return isCancelling_.load(); }
    bool wasLastDeviceCancelled() const { return wasLastDeviceCancelled_; }
    bool showRestoreError() const { return showRestoreError_; }
    QString errorMessage() const { return errorMessage_; }
    bool shouldShowRestoreComplete() const { return shouldShowRestoreComplete_; }
    bool showNotInDFUError() const { return showNotInDFUError_; }
    bool showACNotInstalledError() const { return showACNotInstalledError_; }
    bool preventTermination() const { return preventTermination_; }
    bool isBatchRunning() const { return batchesRunning_ > 0; }
    bool batchFailed() const { return batchFailed_; }

    int minutesElapsed() const { return minutesElapsed_; }
    int secondsElapsed() const { return secondsElapsed_; }
    // "Restore Time: 01:05"
    QString restoreTimeText() const;
    // One tick of the restore timer, once a second while a batch runs.
    void restoreTimerFired();

    double freeDiskSpace() const { return freeDiskSpace_; }  // GB
    // "Free Space: 12.3 GB"
    QString freeSpaceText() const;
    // Which volume is measured, and why, for a tooltip.
    QString freeSpaceVolume() const { return freeSpaceVolume_; }
    void refreshFreeSpace();

    // The remove-cache switch: the user's setting, read back at every restore.
    bool shouldRemoveCache() const;
    void setShouldRemoveCache(bool remove);

    void dismissRestoreError();
    void dismissRestoreComplete();

  signals:
    void historyAppended(const restore::History& record);
    void restoredDevicesChanged(int count);
    void isCancellingChanged(bool cancelling);
    void restoreErrorChanged(bool show, const QString& message);
    void restoreCompleteChanged(bool show);
    void preventTerminationChanged(bool prevent);
    void batchRunningChanged(bool running);
    void restoreTimeChanged(const QString& text);
    void freeSpaceChanged(const QString& text);
    // A device's restoreStatus changed; read it from the device.
    void deviceStatusChanged(const restore::DevicePtr& device);
    // The tool's own step and progress (-1 without a value) for a device.
    void deviceProgress(const restore::DevicePtr& device, const QString& step, float progress);
    // A device of the batch has its outcome in the history: restored, failed or cancelled.
    void deviceFinished(const restore::DevicePtr& device);
    // The last device of a batch has completed.
    void batchFinished(bool failed, bool cancelled);

  private:
    friend class RestoreQueue;

    // Main thread only; RestoreQueue reports through these.
    void appendHistory(const DevicePtr& device, const QString& message);
    void setDeviceStatus(const DevicePtr& device, const QString& status);
    void setIsCancelling(bool cancelling);
    void countRestored();
    void setRestoreError(const QString& message);
    void setWasLastDeviceCancelled() { wasLastDeviceCancelled_ = true; }
    void finishBatch(bool failed, bool cancelled);
    void startBatch();

    Collaborators c_;
    std::unique_ptr<RestoreQueue> queue_;
    QList<History> history_;
    int restoredDevices_ = 0;
    std::atomic<bool> isCancelling_{false};
    bool wasLastDeviceCancelled_ = false;
    bool showRestoreError_ = false;
    QString errorMessage_;
    bool shouldShowRestoreComplete_ = false;
    bool showNotInDFUError_ = false;
    bool showACNotInstalledError_ = false;
    bool preventTermination_ = false;
    int batchesRunning_ = 0;
    bool batchFailed_ = false;
    QTimer restoreTimer_;
    int minutesElapsed_ = 0;
    int secondsElapsed_ = 0;
    double freeDiskSpace_ = 0;
    QString freeSpaceVolume_;
};

}  // namespace restore

Q_DECLARE_METATYPE(restore::History)
