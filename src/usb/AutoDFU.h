#pragma once

#include <atomic>
#include <cstdint>

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

// The unattended cycle of the host's own DFU port. One shared instance; the restore workflow
// reads and sets its state from its own queue, the USB handlers from the main thread, so the
// state is atomic.
class AutoDFU {
  public:
    static AutoDFU& shared();
    AutoDFU() = default;
    AutoDFU(const AutoDFU&) = delete;
    AutoDFU& operator=(const AutoDFU&) = delete;

    AutoTarvState autoTarvState() const { return autoTarvState_.load(); }
    void setAutoTarvState(AutoTarvState state) { autoTarvState_.store(state); }

    bool autoRestoreMode() const { return autoRestoreMode_.load(); }
    void setAutoRestoreMode(bool on) { autoRestoreMode_.store(on); }
    bool autoDFUMode() const { return autoDFUMode_.load(); }
    void setAutoDFUMode(bool on) { autoDFUMode_.store(on); }
    bool shouldBootToRecoveryAfterRestore() const { return bootToRecovery_.load(); }
    void setShouldBootToRecoveryAfterRestore(bool on) { bootToRecovery_.store(on); }

    // The restore workflow hands a device back here once its automatic restore succeeded; the
    // cycle then waits for the Mac to be unplugged before it asks for DFU mode again.
    void restoreFinished() { setAutoTarvState(AutoTarvState::restored); }

  private:
    std::atomic<AutoTarvState> autoTarvState_{AutoTarvState::unknown};
    std::atomic<bool> autoRestoreMode_{false};
    std::atomic<bool> autoDFUMode_{false};
    std::atomic<bool> bootToRecovery_{false};
};
