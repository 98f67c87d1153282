#pragma once

#include "localport/AutoDFU.h"

#include "restore/RestoreSession.h"

#include <QObject>
#include <QTimer>

#include <functional>

namespace localport {

using restore::DeviceList;
using restore::DevicePtr;

// The restore workflow's side of the automatic cycle on the host's own DFU port: when a Mac has
// arrived there in DFU mode and automatic restore is on, it finds that Mac in the restore engine's
// listing and restores it through the session. The cycle takes any arrival on the port for one
// in DFU mode; a Mac that arrived running is sent back to `unknown`, so the next tick asks for
// DFU mode instead of the cycle waiting for ever for a restore that cannot start. The queue hands
// a success back to the cycle itself; a restore that failed or was cancelled is handed back
// here, so unplugging that Mac starts the cycle again. Main thread.
class LocalPortAutoRestore final : public QObject {
    Q_OBJECT

  public:
    using ListDevices = std::function<void(std::function<void(const DeviceList& devices)>)>;
    enum class PortDevice { absent, inDFU, running };

    struct Collaborators {
        AutoDFU* autoDFU = nullptr;
        restore::RestoreSession* session = nullptr;
        core::AppState* appState = nullptr;
        ListDevices listDevices;
        // What the USB registry shows on the DFU port now.
        std::function<PortDevice()> portDevice;
        // Apple Configurator may not list a Mac the moment it arrives; look again after this.
        int retryMilliseconds = 2000;
    };

    // Lists through the engine of this process.
    static ListDevices engineListing();
    // Asks this process's USB registry.
    static std::function<PortDevice()> registryPortDevice();
    // What the restore queue tells the cycle: a batch has started, a Mac has restored.
    static restore::RestoreSession::HostPortCycle handOffTo(AutoDFU& cycle);

    explicit LocalPortAutoRestore(Collaborators collaborators, QObject* parent = nullptr);

  signals:
    void restoreStarted(const restore::DevicePtr& device);
    void deviceRestored(const restore::DevicePtr& device);
    void restoreFailed(const restore::DevicePtr& device, const QString& message);

  private:
    void stateChanged(AutoTarvState state);
    void lookForTheMac();
    void restoreFrom(const DeviceList& devices);
    void batchFinished(bool failed, bool cancelled);

    Collaborators c_;
    QTimer retry_;
    DevicePtr restoring_;
    bool listing_ = false;
};

}  // namespace localport
