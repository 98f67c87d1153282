#pragma once

#include "configurator/AC2Device.h"
#include "configurator/UsbLookups.h"

#include <QList>
#include <QString>

#include <memory>

namespace configurator {

using DeviceList = QList<std::shared_ptr<AC2Device>>;

// Apple's USB vendor ID, under which the listing looks its devices up.
inline constexpr std::int64_t appleVendorID = 1452;

// The records of one chunk of `cfgutil --format plist list` output, completed from the USB
// registry. The chunk is parsed by itself: a document split over two chunks parses in neither.
DeviceList parseDeviceListing(const QString& chunk, UsbLookups& usb);

// Whether the tool's whole output is a device listing at all (a property list with its
// "Devices" array, empty or not): no records from unreadable output is not an empty bench.
bool isReadableDeviceListing(const QString& output);

}  // namespace configurator
