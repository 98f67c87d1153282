#pragma once

#include <QString>
#include <QStringView>

#include <cstdint>
#include <optional>

namespace usb {

// The macOS locationID of a device on `busNumber` at port path `devicePath` ("2.3", "0" for the
// root hub): the bus in bits 24-31, then one nibble per hop from bits 20-23 downward. Ports
// above 15, more than six hops or a bus above 255 cannot be written that way: nullopt.
std::optional<std::uint32_t> locationIDFor(int busNumber, QStringView devicePath);

// Splits a kernel device name such as "1-2.3" into bus 1 and port path "2.3"; a root hub
// ("usb1") gets path "0". Nullopt for names that are not USB devices.
struct BusPosition {
    int busNumber = 0;
    QString devicePath;
};
std::optional<BusPosition> busPositionFromName(QStringView sysname);

// The ECID an Apple device in DFU or recovery mode carries in its serial string
// ("... ECID:001234567890ABCD ..."), read as hexadecimal. One that does not fit the registry's
// signed 64-bit "UsbAppleDeviceECID" is left out (with a debug line).
std::optional<std::uint64_t> ecidFromSerialString(const QString& serial);

// Whether an ECID can be stored as the registry's signed 64-bit number.
bool fitsRegistryEcid(std::uint64_t ecid);

}  // namespace usb
