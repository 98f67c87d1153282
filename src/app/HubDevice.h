#pragma once

#include "hubs/AcronamePort.h"

#include <QString>
#include <QUuid>

#include <cstdint>
#include <memory>

class AC2Device;
class AcronameHub;

namespace app {

// One row of the hub window: a usable hub port and what sits on it.
struct HubDevice {
    std::uint32_t hubSerialNumber = 0;
    QString hubFirmwareVersion;
    std::int64_t portID = 0;
    bool isConnected = false;
    std::shared_ptr<AcronamePort> acronamePort;
    std::int64_t deviceUSBID = 0;
    // A port knows its hub only by a plain pointer; the row keeps that hub alive for as long as
    // an action may be started on it.
    std::shared_ptr<AcronameHub> hub;
    // New at every rebuild, so a selection never outlives the rows it was made on.
    QUuid id;

    static HubDevice fromEntry(const AC2Device& entry);
};

}  // namespace app
