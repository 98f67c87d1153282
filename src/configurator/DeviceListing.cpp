#include "configurator/DeviceListing.h"

#include "core/PropertyList.h"

#include <QUuid>

namespace configurator {
namespace {

int hexDigit(char16_t c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// The text after its "0x" prefix, scanned as a hexadecimal number the lenient way the tool's own
// platform scans: leading blanks and a second "0x" are passed over, the scan stops at the first
// character that is no hex digit, and an overflow gives the largest value. No digit at all gives 0,
// which marks the record as unusable for a restore.
std::uint64_t scanEcid(const QString& text) {
    QStringView rest = QStringView(text).mid(2).trimmed();
    if (rest.startsWith(QLatin1String("0x"), Qt::CaseInsensitive))
        rest = rest.mid(2);
    std::uint64_t value = 0;
    bool overflow = false;
    qsizetype digits = 0;
    for (; digits < rest.size(); ++digits) {
        const int digit = hexDigit(rest[digits].unicode());
        if (digit < 0)
            break;
        if (value > (UINT64_MAX >> 4))
            overflow = true;
        value = (value << 4) | static_cast<std::uint64_t>(digit);
    }
    if (digits == 0)
        return 0;
    return overflow ? UINT64_MAX : value;
}

QString formatProductID(const QVariantMap& ioKitInfo) {
    const QVariant idProduct = ioKitInfo.value(QStringLiteral("idProduct"));
    const auto value = static_cast<std::int64_t>(idProduct.toDouble());
    QString hex = QString::number(static_cast<quint64>(value), 16).toUpper();
    if (hex.size() < 2)
        hex.prepend(QString(2 - hex.size(), '0'));
    return QStringLiteral("0x") + hex;
}

std::shared_ptr<AC2Device> deviceFrom(const QVariantMap& info, UsbLookups& usb) {
    auto device = std::make_shared<AC2Device>();
    device->setDeviceType(info.value(QStringLiteral("deviceType")).toString());
    device->setEcid(scanEcid(info.value(QStringLiteral("ECID")).toString()));
    device->setUdid(info.value(QStringLiteral("UDID")).toString());
    device->setInDFU(false);
    if (info.contains(QStringLiteral("locationID"))) {
        device->setLocationID(info.value(QStringLiteral("locationID")).toLongLong());
        const auto address = static_cast<std::uint64_t>(device->locationID());
        const std::optional<QString> raw = usb.vendorSerialNumber(address, appleVendorID);
        const std::optional<QString> normalized =
            usb.normalizedSerialNumber(usb.vendorSerialNumber(address, appleVendorID));
        if (usb.deviceInDFUMode(address, appleVendorID))
            device->setInDFU(true);
        // A device in its boot loader reports an iBoot string, which is no serial number.
        if (raw && !raw->contains(QStringLiteral("iBoot")))
            device->setSerialNumber(normalized.value_or(QString()));
    }
    device->setIoKitInfo(
        usb.vendorDeviceInfo(static_cast<std::uint64_t>(device->locationID()), appleVendorID));
    device->setMyIdProperty(QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper());
    device->setName(info.value(QStringLiteral("name")).toString());
    device->setProductID(formatProductID(device->ioKitInfo()));
    return device;
}

}  // namespace

DeviceList parseDeviceListing(const QString& chunk, UsbLookups& usb) {
    DeviceList devices;
    const std::optional<QVariant> parsed = core::parsePropertyList(chunk.toUtf8());
    if (!parsed)
        return devices;
    const QVariantMap top = parsed->toMap();
    const QVariantList keys = top.value(QStringLiteral("Devices")).toList();
    if (keys.isEmpty() || !top.contains(QStringLiteral("Output")))
        return devices;
    const QVariantMap output = top.value(QStringLiteral("Output")).toMap();
    for (const QVariant& key : keys) {
        const auto entry = output.constFind(key.toString());
        if (entry == output.constEnd())
            continue;
        devices.append(deviceFrom(entry->toMap(), usb));
    }
    return devices;
}

bool isReadableDeviceListing(const QString& output) {
    const std::optional<QVariant> parsed = core::parsePropertyList(output.trimmed().toUtf8());
    return parsed && parsed->toMap().value(QStringLiteral("Devices")).metaType().id() ==
                         QMetaType::QVariantList;
}

}  // namespace configurator
