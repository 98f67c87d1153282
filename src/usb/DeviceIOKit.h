#pragma once

#include "usb/DeviceIOKitInfo.h"
#include "usb/UsbRegistry.h"

#include <QMap>
#include <QString>

#include <cstdint>
#include <functional>
#include <optional>

// Questions about one USB device, named by its location (locationID, "device address") and
// vendor ID. Holds no state: every query reads the registry afresh, so one object may be made
// per use and used from any thread.
class DeviceIOKit {
  public:
    using LogFunction = std::function<void(const QString&)>;

    // Over the registry of this process (udev, or the simulator when one is selected).
    DeviceIOKit();
    explicit DeviceIOKit(usb::UsbRegistry& registry, LogFunction log = {});

    // Every text or number property of the first device of that vendor at that location,
    // numbers as decimal text; empty when no device matches.
    QMap<QString, QString> vendorDeviceInfoWithDeviceAddress(std::uint64_t deviceAddress,
                                                             std::int64_t vendorID) const;
    std::optional<QString> vendorSerialNumberWithDeviceAddress(std::uint64_t deviceAddress,
                                                               std::int64_t vendorID) const;
    // Upper-cased; nullopt for nullopt and for serials containing "ECID" or "-", which are not
    // serial numbers of the device but its boot-ROM identity or a generated name.
    static std::optional<QString> normalizedSerialNumberWithSerialNumber(
        const std::optional<QString>& serialNumber);
    bool deviceInDFUModeWithDeviceAddress(std::uint64_t deviceAddress, std::int64_t vendorID) const;
    // The location of the hub the device at `deviceAddress` hangs on.
    std::uint64_t hubAddressWithDeviceAddress(std::uint64_t deviceAddress) const;

    // The record of one registry entry; a null entry gives the empty record. A negative vendor
    // or ECID ends the process: the registry is corrupt and nothing built on it can be trusted.
    static DeviceIOKitInfo deviceInfoWithService(const usb::PropertyMap* service);

  private:
    usb::UsbRegistry& registry_;
    LogFunction log_;
};
