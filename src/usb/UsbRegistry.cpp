#include "usb/UsbRegistry.h"

#include "core/SimulatorAddress.h"
#include "usb/UdevUsbRegistry.h"

#include <mutex>

namespace usb {
namespace {

std::mutex selectionMutex;
std::optional<QString> selectedSimulator;

UsbRegistry* makeShared() {
    std::optional<QString> socket = selectedSimulator;
    if (!socket) socket = core::simulatorSocketFromEnvironment();
    Q_UNUSED(socket);
    return new UdevUsbRegistry();
}

}  // namespace

UsbRegistry& UsbRegistry::shared() {
    // Never destroyed: watchers and queries may still run while statics are torn down.
    static UsbRegistry* const registry = [] {
        const std::lock_guard lock(selectionMutex);
        return makeShared();
    }();
    return *registry;
}

void UsbRegistry::selectSimulator(const QString& socketPath) {
    const std::lock_guard lock(selectionMutex);
    selectedSimulator = socketPath;
}

}  // namespace usb
