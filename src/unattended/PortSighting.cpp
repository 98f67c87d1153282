#include "unattended/PortSighting.h"

#include "usb/HubPortNames.h"
#include "usb/PropertyValues.h"

namespace unattended {
namespace {

// The registry gives the boot ROM's ECID as decimal text or as a number, by backend.
std::uint64_t ecidOf(const usb::PropertyMap& device) {
    if (const auto number = usb::unsignedProperty(device, usb::keys::ecid))
        return *number;
    return usb::textProperty(device, usb::keys::ecid).value_or(QString()).toULongLong();
}

}  // namespace

QHash<QString, PortSighting> sightPorts(const QList<usb::PropertyMap>& devices,
                                        const QStringList& ports) {
    const usb::HubPortNames names(devices);
    QHash<std::uint64_t, const usb::PropertyMap*> macs;
    for (const usb::PropertyMap& device : devices)
        if (const auto location = usb::unsignedProperty(device, usb::keys::locationID);
            location && station::MacModeCheck::modeOf(device) != station::MacMode::Absent)
            macs.insert(*location, &device);
    QHash<QString, PortSighting> sightings;
    for (const QString& port : ports) {
        PortSighting sighting;
        sighting.location = names.locationOf(port);
        if (sighting.location) {
            const usb::PropertyMap* mac = macs.value(*sighting.location);
            sighting.mode = mac ? station::MacModeCheck::modeOf(*mac) : station::MacMode::Absent;
            if (mac && sighting.mode != station::MacMode::Booted)
                sighting.ecid = ecidOf(*mac);
            else if (mac)
                sighting.serialNumber =
                    usb::textProperty(*mac, usb::keys::serialNumber).value_or(QString());
        }
        sightings.insert(port, sighting);
    }
    return sightings;
}

}  // namespace unattended
