#include "station/MacModeCheck.h"

#include "usb/HubPortNames.h"
#include "usb/PropertyValues.h"

namespace station {
namespace {

constexpr std::int64_t kAppleVendor = 0x05AC;
// The boot ROM's recovery and restore identities.
constexpr std::int64_t kFirstRecoveryProduct = 0x1280;
constexpr std::int64_t kLastRecoveryProduct = 0x1283;

}  // namespace

QString macModeText(MacMode mode) {
    switch (mode) {
        case MacMode::Absent:
            return QStringLiteral("no Mac");
        case MacMode::HubAbsent:
            return QStringLiteral("no hub");
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

std::optional<std::map<QString, MacMode>> MacModeCheck::modes(const QStringList& names) const {
    const auto devices = registry_.devices();
    if (!devices)
        return std::nullopt;
    const usb::HubPortNames ports(*devices);
    std::map<QString, MacMode> found;
    for (const QString& name : names) {
        const auto location = ports.locationOf(name);
        MacMode mode = location ? MacMode::Absent : MacMode::HubAbsent;
        for (const usb::PropertyMap& device : *devices)
            if (location && usb::unsignedProperty(device, usb::keys::locationID) == location &&
                modeOf(device) != MacMode::Absent)
                mode = modeOf(device);
        found[name] = mode;
    }
    return found;
}

}  // namespace station
