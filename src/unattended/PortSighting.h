#pragma once

#include "station/MacModeCheck.h"

#include "usb/UsbRegistry.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <optional>

namespace unattended {

// What USB shows on one hub port: the Mac's mode, and who it is as far as that mode tells (the
// boot ROM names its ECID, a booted Mac its serial number).
struct PortSighting {
    station::MacMode mode = station::MacMode::HubAbsent;
    std::optional<std::uint64_t> location;
    std::uint64_t ecid = 0;
    QString serialNumber;

    bool present() const {
        return mode == station::MacMode::Booted || mode == station::MacMode::Dfu ||
               mode == station::MacMode::Recovery;
    }
};

// Every named port's sighting in one listing of the bus.
QHash<QString, PortSighting> sightPorts(const QList<usb::PropertyMap>& devices,
                                        const QStringList& ports);

}  // namespace unattended
