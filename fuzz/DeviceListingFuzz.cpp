// The Configurator listing parser on arbitrary tool output, with a USB registry that knows one
// device, so the look-ups a parsed record triggers run too.
#include "configurator/DeviceListing.h"

#include "FakeUsbLookups.h"

#include <QString>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    testing_support::FakeUsbLookups usb;
    usb.devices[0x01110000] = {
        {"kUSBSerialNumberString", "CPID:8103 ECID:0016594A1492801E SRTG:[iBoot]"},
        {"kUSBProductString", "Apple Mobile Device (DFU Mode)"},
        {"idProduct", "4647"}};
    const QString chunk =
        QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    configurator::parseDeviceListing(chunk, usb);
    return 0;
}
