#include "usb/UsbRegistry.h"

#include "core/SimulatorAddress.h"
#include "usb/SimulatorUsbRegistry.h"
#include "usb/UdevUsbRegistry.h"

#include <QCoreApplication>
#include <QThread>

#include <mutex>

namespace usb {
namespace {

std::mutex selectionMutex;
std::optional<QString> selectedSimulator;

UsbRegistry* makeShared() {
    std::optional<QString> socket = selectedSimulator;
    if (!socket)
        socket = core::simulatorSocketFromEnvironment();
    UsbRegistry* registry = nullptr;
    if (socket)
        registry = new SimulatorUsbRegistry(*socket);
    else
        registry = new UdevUsbRegistry();
    // The first user may be a worker thread; arrivals and removals belong to the main loop.
    if (QCoreApplication* application = QCoreApplication::instance())
        registry->moveToThread(application->thread());
    return registry;
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
