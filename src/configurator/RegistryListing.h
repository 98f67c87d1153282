#pragma once

#include "configurator/DeviceListing.h"

#include "usb/UsbRegistry.h"

namespace usb {
class MacModelNames;
}

namespace configurator {

// The Macs the USB registry shows in DFU or recovery mode, listed as an engine without a listing
// of its own (idevicerestore) must list them: the ECID, the model from the boot ROM's chip and
// board, the USB location and product, and the serial number where recovery mode names it. The
// records have the same fields as Apple Configurator's, so every view and JSON key stays the same.
DeviceList listMacsInRegistry(const QList<usb::PropertyMap>& devices,
                              const usb::MacModelNames& models);

// The serial number in a boot loader's USB serial string ("... SRNM:[C02XK1ZNJG5J] ..."); empty
// when it names none.
QString serialNumberInBootString(const QString& text);

}  // namespace configurator
