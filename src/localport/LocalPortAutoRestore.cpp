#include "localport/LocalPortAutoRestore.h"

#include "core/AppState.h"
#include "engines/EngineChoice.h"
#include "core/Log.h"
#include "usb/DeviceIOKit.h"

namespace localport {

LocalPortAutoRestore::ListDevices LocalPortAutoRestore::engineListing() {
    return [](std::function<void(const DeviceList&)> done) {
        engines::sharedEngine().listDevices(
            [done = std::move(done)](const configurator::DeviceList& devices) {
                DeviceList listed;
                for (const auto& device : devices) listed.append(device);
                done(listed);
            });
    };
}

std::function<LocalPortAutoRestore::PortDevice()> LocalPortAutoRestore::registryPortDevice() {
    return [] {
        constexpr std::int64_t apple = 0x05AC;
        const DeviceIOKit registry;
        if (registry.vendorDeviceInfoWithDeviceAddress(AutoDFU::dfuPortAddress, apple).isEmpty())
            return PortDevice::absent;
        return registry.deviceInDFUModeWithDeviceAddress(AutoDFU::dfuPortAddress, apple)
                   ? PortDevice::inDFU
                   : PortDevice::running;
    };
}

restore::RestoreSession::HostPortCycle LocalPortAutoRestore::handOffTo(AutoDFU& cycle) {
    return {[&cycle] { cycle.setAutoTarvState(AutoTarvState::restoring); },
            [&cycle] { cycle.restoreFinished(); }};
}

LocalPortAutoRestore::LocalPortAutoRestore(Collaborators collaborators, QObject* parent)
    : QObject(parent), c_(std::move(collaborators)) {
    retry_.setSingleShot(true);
    retry_.setInterval(c_.retryMilliseconds);
    connect(&retry_, &QTimer::timeout, this, &LocalPortAutoRestore::lookForTheMac);
    connect(c_.autoDFU, &AutoDFU::autoTarvStateChanged, this, &LocalPortAutoRestore::stateChanged,
            Qt::QueuedConnection);
    connect(c_.session, &restore::RestoreSession::batchFinished, this, &LocalPortAutoRestore::batchFinished);
}

void LocalPortAutoRestore::stateChanged(AutoTarvState state) {
    if (state == AutoTarvState::inDFU)
        lookForTheMac();
}

void LocalPortAutoRestore::lookForTheMac() {
    if (listing_ || restoring_ || !c_.appState->isAutoRestoreOn() ||
        c_.autoDFU->autoTarvState() != AutoTarvState::inDFU)
        return;
    switch (c_.portDevice()) {
        case PortDevice::running:
            ZMRLogLevel1(
                QStringLiteral("The Mac on the DFU port is not in DFU mode; asking for "
                               "DFU mode again"));
            c_.autoDFU->setAutoTarvState(AutoTarvState::unknown);
            return;
        case PortDevice::absent:  // still on its way in DFU mode
            retry_.start();
            return;
        case PortDevice::inDFU:
            break;
    }
    listing_ = true;
    c_.listDevices([this](const DeviceList& devices) {
        listing_ = false;
        restoreFrom(devices);
    });
}

void LocalPortAutoRestore::restoreFrom(const DeviceList& devices) {
    if (restoring_ || c_.autoDFU->autoTarvState() != AutoTarvState::inDFU)
        return;
    const auto found = std::find_if(devices.begin(), devices.end(), [](const DevicePtr& device) {
        return device->locationID() == AutoDFU::dfuPortAddress && device->inDFU();
    });
    if (found == devices.end()) {
        ZMRLogDebug(QStringLiteral("The Mac on the DFU port is not listed in DFU mode yet"));
        retry_.start();
        return;
    }
    // A refusal has told the user why (no Apple Configurator, no firmware file); asking again
    // every few seconds would only repeat the alert.
    if (!c_.session->restore({*found})) {
        ZMRLogLevel1(QStringLiteral("The restore of the Mac on the DFU port was refused"));
        return;
    }
    restoring_ = *found;
    emit restoreStarted(restoring_);
}

void LocalPortAutoRestore::batchFinished(bool failed, bool cancelled) {
    if (!restoring_)
        return;
    const DevicePtr device = std::exchange(restoring_, nullptr);
    if (!failed && !cancelled) {
        emit deviceRestored(device);
        return;
    }
    c_.autoDFU->setAutoTarvState(AutoTarvState::restored);
    emit restoreFailed(
        device, cancelled ? QStringLiteral("Restore Cancelled") : c_.session->errorMessage());
}

}  // namespace localport
