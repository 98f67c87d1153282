#pragma once

#include "usb/LocalPortHelper.h"
#include "usb/RepeatingTimer.h"

#include <QObject>
#include <QString>
#include <QVariantMap>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

namespace core {
class Clock;
class NotificationCenter;
class Settings;
}  // namespace core

// Where the unattended cycle on the host's own DFU port stands.
enum class AutoTarvState : std::uint8_t {
    unknown = 0,        // nothing known; the next tick asks the helper for DFU mode
    waitingForDFU = 1,  // DFU requested; waiting for the device to appear in DFU mode
    inDFU = 2,          // a device in DFU mode is on the local DFU port
    stop = 3,           // halted
    restoring = 4,      // the device is being restored
    restored = 5,       // the restore finished
};

const char* autoTarvStateName(AutoTarvState state);

// The unattended cycle of the host's own DFU port: while it runs, a Mac cabled to that port is
// put into DFU mode, its arrival in DFU mode is noticed from the USB notifications, and the
// restore workflow takes it from there; unplugging it starts the cycle again. The tick, the USB
// handlers and the helper's replies live on the main thread; the restore workflow sets the state
// from its own queue, so state and flags are atomic.
class AutoDFU : public QObject {
    Q_OBJECT

  public:
    // The only USB location the cycle looks at: the Mac on this host's own DFU port.
    static constexpr std::int64_t dfuPortAddress = hostDfuPortAddress;
    // A Mac gets this many ticks after the DFU request to show up in DFU mode.
    static constexpr int waitingForDFUTicks = 6;

    struct Collaborators {
        core::NotificationCenter* center = nullptr;
        // Asked only when a request is sent, so merely creating the cycle installs nothing.
        std::function<LocalPortHelper&()> helper;
        core::Settings* settings = nullptr;  // the pause between recovery reboots
        core::Clock* clock = nullptr;
        usb::RepeatingTimerFactory timers;
        std::function<void(const QString& line)> print;  // the lines meant for standard output
    };

    // The default centre, the shared helper client and settings, the system clock, main-loop
    // timers and standard output.
    static Collaborators defaultCollaborators();
    static AutoDFU& shared();

    AutoDFU();
    explicit AutoDFU(Collaborators collaborators);
    ~AutoDFU() override;
    AutoDFU(const AutoDFU&) = delete;
    AutoDFU& operator=(const AutoDFU&) = delete;

    AutoTarvState autoTarvState() const { return autoTarvState_.load(); }
    void setAutoTarvState(AutoTarvState state);

    bool isRunning() const { return isRunning_.load(); }
    bool hasTimer() const { return timer_ != nullptr; }
    int waitingForDFUCounter() const { return waitingForDFUCounter_; }

    bool autoRestoreMode() const { return autoRestoreMode_.load(); }
    void setAutoRestoreMode(bool on) { autoRestoreMode_.store(on); }
    bool autoDFUMode() const { return autoDFUMode_.load(); }
    void setAutoDFUMode(bool on) { autoDFUMode_.store(on); }
    bool shouldBootToRecoveryAfterRestore() const { return bootToRecovery_.load(); }
    void setShouldBootToRecoveryAfterRestore(bool on) { bootToRecovery_.store(on); }

    // Main thread. Replaces any timer and ticks once a second from now on.
    void startTimer();
    void timerFired();
    // The observers of "deviceAdded" and "deviceRemoved".
    void deviceAdded(const QVariantMap& userInfo);
    void deviceRemoved(const QVariantMap& userInfo);

    // The two switches of the local port. Turning one on restarts the cycle from `unknown`;
    // turning one off halts the ticks. They may be flipped from any thread.
    void setAutomaticDFU(bool on);
    void setRestoreAutomatically(bool on);

    // The restore workflow hands a device back here once its automatic restore succeeded; the
    // cycle then waits for the Mac to be unplugged before it asks for DFU mode again, after
    // starting it into recovery first when that is wanted.
    void restoreFinished();

    // Starts the Mac on the DFU port into recovery by rebooting it five times. Blocks for five
    // times `recoverySleepBetweenReboots` seconds: never call it on the main thread.
    void recoveryMode(const std::function<void(const QString& message)>& update,
                      const std::function<void()>& completion);

  signals:
    // Emitted on the thread that changed the state.
    void autoTarvStateChanged(AutoTarvState state);
    // The recovery run started after an automatic restore has ended; emitted on the main thread.
    void recoveryAfterRestoreFinished();
    // The helper refused the cycle's DFU request, or its prompt was dismissed: automatic DFU is
    // off now.
    void automaticDFURefused(const HelperFailure& failure);

  private:
    void requestDFU();
    void dfuRequestFailed(const HelperFailure& failure);
    void dropTimer();
    void print(const QString& line) const;

    Collaborators c_;
    std::atomic<AutoTarvState> autoTarvState_{AutoTarvState::unknown};
    std::atomic<bool> isRunning_{false};
    std::unique_ptr<usb::RepeatingTimer> timer_;
    int waitingForDFUCounter_ = 0;
    std::atomic<bool> autoRestoreMode_{false};
    std::atomic<bool> autoDFUMode_{false};
    std::atomic<bool> bootToRecovery_{false};
    std::uint64_t addedToken_ = 0;
    std::uint64_t removedToken_ = 0;
    // Replies queued to the main thread check this before touching a cycle that may be gone.
    std::shared_ptr<int> lifetime_ = std::make_shared<int>(0);
};

Q_DECLARE_METATYPE(AutoTarvState)
