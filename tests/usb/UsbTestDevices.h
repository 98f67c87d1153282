#pragma once

#include "usb/UsbRegistry.h"

#include <QString>

#include <cstdint>

namespace usb_testing {

inline constexpr qlonglong apple = 0x05AC;
inline constexpr qlonglong acroname = 0x24FF;

inline QString dfuSerial(std::uint64_t ecid) {
    return QStringLiteral(
               "CPID:8103 CPRV:11 CPFM:03 SCEP:01 BDID:26 ECID:%1 IBFL:3C "
               "SRTG:[iBoot-7459.121.3]")
        .arg(QString::number(ecid, 16).rightJustified(16, QLatin1Char('0')).toUpper());
}

// A registry entry with the properties every test needs; callers add or overwrite the rest.
inline usb::PropertyMap device(qlonglong vendor, qulonglong location, const QString& serial,
                               const QString& product) {
    return {{usb::keys::vendorID, vendor},
            {usb::keys::productID, qlonglong(0x1905)},
            {usb::keys::locationID, location},
            {usb::keys::serialNumber, serial},
            {usb::keys::productName, product}};
}

}  // namespace usb_testing
