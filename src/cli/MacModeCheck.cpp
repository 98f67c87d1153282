#include "cli/MacModeCheck.h"

#include "usb/PropertyValues.h"

namespace cli {
namespace {

constexpr std::int64_t kAppleVendor = 0x05AC;
constexpr std::int64_t kAcronameVendor = 0x24FF;
// The boot ROM's recovery and restore identities.
constexpr std::int64_t kFirstRecoveryProduct = 0x1280;
constexpr std::int64_t kLastRecoveryProduct = 0x1283;
constexpr int kFirstHopShift = 20;

std::optional<std::uint32_t> hexSerial(const QString& text) {
    bool ok = false;
    const std::uint32_t value = text.toUInt(&ok, 16);
    return ok ? std::optional(value) : std::nullopt;
}

// The hub's own location: of the hub's devices with that serial (the hub and its control
// interface behind it), the one nearest the root.
std::optional<std::uint64_t> hubLocation(const QList<usb::PropertyMap>& devices,
                                         std::uint32_t serial) {
    std::optional<std::uint64_t> nearest;
    for (const usb::PropertyMap& device : devices) {
        if (usb::signedProperty(device, usb::keys::vendorID) != kAcronameVendor)
            continue;
        if (hexSerial(usb::textProperty(device, usb::keys::serialNumber).value_or(QString())) !=
            serial)
            continue;
        const auto location = usb::unsignedProperty(device, usb::keys::locationID);
        if (location && (!nearest || *location < *nearest))
            nearest = location;
    }
    return nearest;
}

}  // namespace

QString macModeText(MacMode mode) {
    switch (mode) {
        case MacMode::Absent:
            return QStringLiteral("no Mac");
        case MacMode::Booted:
            return QStringLiteral("booted");
        case MacMode::Dfu:
            return QStringLiteral("in DFU mode");
        case MacMode::Recovery:
            return QStringLiteral("in recovery");
    }
    return {};
}

MacModeCheck::MacModeCheck(usb::UsbRegistry& registry) : registry_(registry) {}

MacMode MacModeCheck::modeOf(const usb::PropertyMap& device) {
    if (usb::signedProperty(device, usb::keys::vendorID) != kAppleVendor)
        return MacMode::Absent;
    const QString serial = usb::textProperty(device, usb::keys::serialNumber).value_or(QString());
    const QString product = usb::textProperty(device, usb::keys::productName).value_or(QString());
    // The boot ROM names its iBoot build in the serial of the DFU identity.
    if (serial.contains(QLatin1String("iBoot")) || product.contains(QLatin1String("DFU")))
        return MacMode::Dfu;
    const std::int64_t id = usb::signedProperty(device, usb::keys::productID).value_or(0);
    if (id >= kFirstRecoveryProduct && id <= kLastRecoveryProduct)
        return MacMode::Recovery;
    return MacMode::Booted;
}

std::optional<std::uint64_t> MacModeCheck::portLocation(std::uint64_t hubLocation, int port) {
    for (int shift = kFirstHopShift; shift >= 0; shift -= 4)
        if (((hubLocation >> shift) & 0xF) == 0)
            return hubLocation | std::uint64_t(port & 0xF) << shift;
    return std::nullopt;
}

std::optional<std::map<QString, MacMode>> MacModeCheck::modes(const QStringList& ports) const {
    const auto devices = registry_.devices();
    if (!devices)
        return std::nullopt;
    std::map<QString, MacMode> found;
    for (const QString& name : ports) {
        MacMode mode = MacMode::Absent;
        const auto serial = hexSerial(name.section(':', 0, 0));
        const auto hub = serial ? hubLocation(*devices, *serial) : std::nullopt;
        const auto location = hub ? portLocation(*hub, name.section(':', 1).toInt()) : std::nullopt;
        for (const usb::PropertyMap& device : *devices)
            if (location && usb::unsignedProperty(device, usb::keys::locationID) == location &&
                modeOf(device) != MacMode::Absent)
                mode = modeOf(device);
        found[name] = mode;
    }
    return found;
}

}  // namespace cli
