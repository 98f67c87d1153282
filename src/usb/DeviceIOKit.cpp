#include "usb/DeviceIOKit.h"

#include "core/Log.h"
#include "usb/PropertyValues.h"

#include <QRegularExpression>
#include <QtGlobal>

namespace {

const usb::PropertyMap* firstMatch(const QList<usb::PropertyMap>& services, std::uint64_t address,
                                   std::int64_t vendorID) {
    for (const usb::PropertyMap& service : services) {
        const auto vendor = usb::signedProperty(service, usb::keys::vendorID);
        if (!vendor || *vendor < 0 || *vendor != vendorID)
            continue;
        const auto location = usb::unsignedProperty(service, usb::keys::locationID);
        if (location && *location == address)
            return &service;
    }
    return nullptr;
}

// "CPID:8103 CPRV:11 ... BDID:22 ECID:..." holds its fields in hexadecimal; 0 when absent.
int bootRomField(const QString& serial, const QString& field) {
    const QRegularExpression pattern(QStringLiteral("\\b%1:([0-9A-Fa-f]{1,8})\\b").arg(field));
    const QRegularExpressionMatch match = pattern.match(serial);
    return match.hasMatch() ? match.captured(1).toInt(nullptr, 16) : 0;
}

}  // namespace

DeviceIOKit::DeviceIOKit() : DeviceIOKit(usb::UsbRegistry::shared()) {}

DeviceIOKit::DeviceIOKit(usb::UsbRegistry& registry, LogFunction log)
    : registry_(registry), log_(log ? std::move(log) : LogFunction(ZMRLogDebug)) {}

QMap<QString, QString> DeviceIOKit::vendorDeviceInfoWithDeviceAddress(std::uint64_t deviceAddress,
                                                                      std::int64_t vendorID) const {
    const std::optional<QList<usb::PropertyMap>> services = registry_.devices();
    if (!services)
        return {};
    const usb::PropertyMap* service = firstMatch(*services, deviceAddress, vendorID);
    if (!service)
        return {};

    QMap<QString, QString> info;
    for (auto it = service->cbegin(); it != service->cend(); ++it) {
        if (usb::isText(it.value()))
            info.insert(it.key(), it.value().toString());
        else if (usb::isNumber(it.value()))
            info.insert(it.key(), usb::decimalText(it.value()));
    }
    return info;
}

std::optional<QString> DeviceIOKit::vendorSerialNumberWithDeviceAddress(
    std::uint64_t deviceAddress, std::int64_t vendorID) const {
    const QMap<QString, QString> info = vendorDeviceInfoWithDeviceAddress(deviceAddress, vendorID);
    const auto serial = info.constFind(usb::keys::serialNumber);
    if (serial == info.cend())
        return std::nullopt;
    return serial.value();
}

std::optional<QString> DeviceIOKit::normalizedSerialNumberWithSerialNumber(
    const std::optional<QString>& serialNumber) {
    if (!serialNumber)
        return std::nullopt;
    const QString upper = serialNumber->toUpper();
    if (upper.contains(QLatin1String("ECID")) || upper.contains(QLatin1Char('-')))
        return std::nullopt;
    return upper;
}

bool DeviceIOKit::deviceInDFUModeWithDeviceAddress(std::uint64_t deviceAddress,
                                                   std::int64_t vendorID) const {
    const QMap<QString, QString> info = vendorDeviceInfoWithDeviceAddress(deviceAddress, vendorID);
    if (info.isEmpty())
        return false;
    // The boot ROM names its iBoot build in the serial; the product text is only a fallback.
    if (info.value(usb::keys::serialNumber).contains(QLatin1String("iBoot")))
        return true;
    const QString product = info.value(usb::keys::productName);
    return product.contains(QLatin1String("DFU")) || product.contains(QLatin1String("Debug"));
}

std::uint64_t DeviceIOKit::hubAddressWithDeviceAddress(std::uint64_t deviceAddress) const {
    log_(QStringLiteral("hubAddress: ") + QString::number(deviceAddress));
    if (deviceAddress == 0) {
        log_(QStringLiteral("deviceAddress = 0"));
        return 0;
    }
    std::uint64_t hub = 0;
    if ((deviceAddress & 0xFF) != 0) {
        hub = deviceAddress & ~std::uint64_t{0xF};
    } else {
        // The last hop sits in the low nibble of the lowest non-zero byte; clearing it and
        // everything beneath leaves the hub. A last hop in a high nibble is kept as it is.
        int byte = 1;
        while (((deviceAddress >> (8 * byte)) & 0xFF) == 0) ++byte;
        hub = deviceAddress & (~std::uint64_t{0} << (8 * byte + 4));
    }
    log_(QStringLiteral("hub: ") + QString::number(hub));
    return hub;
}

DeviceIOKitInfo DeviceIOKit::deviceInfoWithService(const usb::PropertyMap* service) {
    if (!service)
        return {};
    const auto vendor = usb::signedProperty(*service, usb::keys::vendorID);
    if (!vendor)
        return {};
    if (*vendor < 0)
        qFatal("USB registry reports a negative idVendor (%lld)", qlonglong(*vendor));

    DeviceIOKitInfo info;
    info.vendor = *vendor;
    info.productName = usb::textProperty(*service, usb::keys::productName).value_or(QString());
    if (const auto ecid = usb::signedProperty(*service, usb::keys::ecid)) {
        if (*ecid < 0)
            qFatal("USB registry reports a negative ECID (%lld)", qlonglong(*ecid));
        info.ecid = *ecid;
    }
    const std::optional<QString> serial = usb::textProperty(*service, usb::keys::serialNumber);
    info.serialNumber = normalizedSerialNumberWithSerialNumber(serial).value_or(QString());
    if (serial) {
        info.chip = bootRomField(*serial, QStringLiteral("CPID"));
        info.board = bootRomField(*serial, QStringLiteral("BDID"));
    }
    info.usbAddress = usb::signedProperty(*service, usb::keys::locationID).value_or(0);
    return info;
}
