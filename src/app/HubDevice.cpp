#include "app/HubDevice.h"

#include "configurator/AC2Device.h"
#include "hubs/AcronameHub.h"

namespace app {

HubDevice HubDevice::fromEntry(const AC2Device& entry) {
    HubDevice row;
    row.acronamePort = entry.port();
    if (row.acronamePort) {
        if (AcronameHub* hub = row.acronamePort->hub()) {
            row.hub = hub->shared_from_this();
            row.hubSerialNumber = hub->serialNumber();
            row.hubFirmwareVersion = hub->firmwareVersion();
        }
        row.portID = row.acronamePort->portID();
        row.isConnected = row.acronamePort->isConnected();
    }
    row.deviceUSBID = entry.locationID();
    row.id = QUuid::createUuid();
    return row;
}

}  // namespace app
