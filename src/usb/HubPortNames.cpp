#include "usb/HubPortNames.h"

#include "core/HubPortName.h"

namespace usb {
namespace {

constexpr std::int64_t kAcronameVendor = 0x24FF;
constexpr int kFirstHopShift = 20;
constexpr int kFirstUsablePort = 1;
constexpr int kLastUsablePort = 5;

}  // namespace

HubPortNames::HubPortNames(const QList<PropertyMap>& devices) {
    // A hub shows several devices with its serial (its USB 2 and 3 halves, its control
    // interface); the hub itself is the one nearest the root.
    QHash<QString, std::uint64_t> hubs;
    for (const PropertyMap& device : devices) {
        if (signedProperty(device, keys::vendorID) != kAcronameVendor)
            continue;
        bool hex = false;
        const std::uint32_t serial =
            textProperty(device, keys::serialNumber).value_or(QString()).toUInt(&hex, 16);
        const auto location = unsignedProperty(device, keys::locationID);
        if (!hex || !location)
            continue;
        const QString hub = core::hubName(serial);
        if (!hubs.contains(hub) || *location < hubs.value(hub))
            hubs.insert(hub, *location);
    }
    for (auto hub = hubs.cbegin(); hub != hubs.cend(); ++hub) {
        for (int port = kFirstUsablePort; port <= kLastUsablePort; ++port) {
            const auto location = portLocation(hub.value(), port);
            if (!location)
                continue;
            const QString name = core::hubPortName(hub.key(), port);
            names_.insert(*location, name);
            locations_.insert(name, *location);
        }
    }
}

QString HubPortNames::nameOf(std::uint64_t location) const {
    return names_.value(location);
}

QStringList HubPortNames::names() const {
    QStringList names = locations_.keys();
    // Ports are single digits, so plain text order keeps a hub's ports together and in order.
    names.sort();
    return names;
}

std::optional<std::uint64_t> HubPortNames::locationOf(const QString& name) const {
    const auto found = locations_.constFind(name.toUpper());
    return found == locations_.cend() ? std::nullopt : std::optional(*found);
}

std::optional<std::uint64_t> HubPortNames::portLocation(std::uint64_t hubLocation, int port) {
    for (int shift = kFirstHopShift; shift >= 0; shift -= 4)
        if (((hubLocation >> shift) & 0xF) == 0)
            return hubLocation | std::uint64_t(port & 0xF) << shift;
    return std::nullopt;
}

}  // namespace usb
