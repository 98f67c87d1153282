#include "usb/MemoryUsbRegistry.h"

#include "usb/PropertyValues.h"

namespace usb {

MemoryUsbRegistry::MemoryUsbRegistry(QList<PropertyMap> devices, QObject* parent)
    : UsbRegistry(parent), devices_(std::move(devices)) {}

std::optional<QList<PropertyMap>> MemoryUsbRegistry::devices() {
    if (unreadable_)
        return std::nullopt;
    return devices_;
}

QList<PropertyMap> MemoryUsbRegistry::startWatching() {
    ++watchers_;
    return devices_;
}

void MemoryUsbRegistry::stopWatching() {
    if (watchers_ > 0)
        --watchers_;
}

void MemoryUsbRegistry::attach(const PropertyMap& properties) {
    devices_.append(properties);
    if (watchers_ > 0)
        emit deviceArrived(properties);
}

bool MemoryUsbRegistry::detach(std::uint64_t locationID) {
    for (qsizetype i = 0; i < devices_.size(); ++i) {
        if (unsignedProperty(devices_[i], keys::locationID) != locationID)
            continue;
        const PropertyMap properties = devices_.takeAt(i);
        if (watchers_ > 0)
            emit deviceRemoved(properties);
        return true;
    }
    return false;
}

}  // namespace usb
