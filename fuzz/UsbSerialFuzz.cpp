// What a USB device controls about itself: its serial string (ECID, normalisation, DFU markers)
// and the kernel name that gives its location.
#include "usb/DeviceIOKit.h"
#include "usb/UsbLocation.h"

#include <QString>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QString text =
        QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const auto ecid = usb::ecidFromSerialString(text);
    usb::PropertyMap device{{usb::keys::vendorID, qlonglong(0x05AC)},
                            {usb::keys::serialNumber, text},
                            {usb::keys::productName, text}};
    if (ecid)
        device[usb::keys::ecid] = qulonglong(*ecid);
    DeviceIOKit::deviceInfoWithService(&device);
    DeviceIOKit::normalizedSerialNumberWithSerialNumber(text);
    if (const auto position = usb::busPositionFromName(text))
        usb::locationIDFor(position->busNumber, position->devicePath);
    return 0;
}
