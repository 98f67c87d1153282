#include "usb/UsbLocation.h"

#include "core/Log.h"

#include <QRegularExpression>

#include <limits>

namespace usb {

std::optional<std::uint32_t> locationIDFor(int busNumber, QStringView devicePath) {
    if (busNumber < 0 || busNumber > 0xFF)
        return std::nullopt;
    std::uint32_t location = static_cast<std::uint32_t>(busNumber) << 24;
    if (devicePath == u"0")
        return location;  // the root hub itself
    const auto hops = devicePath.split(u'.');
    if (hops.size() > 6)
        return std::nullopt;
    int shift = 20;
    for (const QStringView hop : hops) {
        bool ok = false;
        const int port = hop.toInt(&ok);
        if (!ok || port < 1 || port > 0xF)
            return std::nullopt;
        location |= static_cast<std::uint32_t>(port) << shift;
        shift -= 4;
    }
    return location;
}

std::optional<BusPosition> busPositionFromName(QStringView sysname) {
    static const QRegularExpression rootHub(QStringLiteral(R"(^usb(\d+)$)"));
    static const QRegularExpression device(QStringLiteral(R"(^(\d+)-(\d+(?:\.\d+)*)$)"));
    const QString name = sysname.toString();
    if (const auto match = rootHub.match(name); match.hasMatch())
        return BusPosition{match.captured(1).toInt(), QStringLiteral("0")};
    if (const auto match = device.match(name); match.hasMatch())
        return BusPosition{match.captured(1).toInt(), match.captured(2)};
    return std::nullopt;
}

std::optional<std::uint64_t> ecidFromSerialString(const QString& serial) {
    static const QRegularExpression field(QStringLiteral(R"((?:^|\s)ECID:([0-9A-Fa-f]{1,16})\b)"));
    const auto match = field.match(serial);
    if (!match.hasMatch())
        return std::nullopt;
    bool ok = false;
    const std::uint64_t ecid = match.captured(1).toULongLong(&ok, 16);
    if (!ok)
        return std::nullopt;
    // The registry holds ECIDs as signed numbers; a device's own serial string must never be
    // able to put a negative one there.
    if (!fitsRegistryEcid(ecid)) {
        ZMRLogDebug(
            QStringLiteral("USB serial \"%1\" carries an ECID too large for the registry; left out")
                .arg(serial));
        return std::nullopt;
    }
    return ecid;
}

bool fitsRegistryEcid(std::uint64_t ecid) {
    return ecid <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
}

}  // namespace usb
