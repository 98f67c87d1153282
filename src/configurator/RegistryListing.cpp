#include "configurator/RegistryListing.h"

#include "usb/DeviceIOKit.h"
#include "usb/MacModelNames.h"
#include "usb/PropertyValues.h"

#include <QRegularExpression>
#include <QUuid>

namespace configurator {
namespace {

constexpr std::int64_t dfuProduct = 0x1227;
constexpr std::int64_t firstRecoveryProduct = 0x1280;
constexpr std::int64_t lastRecoveryProduct = 0x1283;

std::shared_ptr<AC2Device> macOf(const usb::PropertyMap& properties, std::int64_t product,
                                 const usb::MacModelNames& models) {
    const DeviceIOKitInfo info = DeviceIOKit::deviceInfoWithService(&properties);
    auto device = std::make_shared<AC2Device>();
    device->setEcid(static_cast<std::uint64_t>(info.ecid));
    device->setInDFU(product == dfuProduct);
    device->setLocationID(info.usbAddress);
    const QString identifier = models.identifierOfChip(info.chip, info.board);
    device->setDeviceType(identifier);
    device->setName(identifier.isEmpty() ? QString() : models.displayName(identifier));
    device->setUdid(QStringLiteral("%1-%2")
                        .arg(info.chip, 8, 16, QLatin1Char('0'))
                        .arg(static_cast<qulonglong>(info.ecid), 16, 16, QLatin1Char('0'))
                        .toUpper());
    device->setProductID(QStringLiteral("0x") + QString::number(product, 16).toUpper());
    device->setSerialNumber(serialNumberInBootString(
        usb::textProperty(properties, usb::keys::serialNumber).value_or(QString())));
    device->setIoKitInfo(properties);
    device->setMyIdProperty(QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper());
    return device;
}

}  // namespace

DeviceList listMacsInRegistry(const QList<usb::PropertyMap>& devices,
                              const usb::MacModelNames& models) {
    DeviceList macs;
    for (const usb::PropertyMap& properties : devices) {
        if (usb::signedProperty(properties, usb::keys::vendorID) != appleVendorID)
            continue;
        const std::int64_t product =
            usb::signedProperty(properties, usb::keys::productID).value_or(0);
        const bool recovery = product >= firstRecoveryProduct && product <= lastRecoveryProduct;
        // Without its ECID a Mac cannot be told apart from another, nor restored.
        if ((product != dfuProduct && !recovery) ||
            !usb::signedProperty(properties, usb::keys::ecid))
            continue;
        macs.append(macOf(properties, product, models));
    }
    return macs;
}

QString serialNumberInBootString(const QString& text) {
    static const QRegularExpression field(QStringLiteral(R"(SRNM:\[([^\]\s]+)\])"));
    const QRegularExpressionMatch match = field.match(text);
    return match.hasMatch() ? match.captured(1) : QString();
}

}  // namespace configurator
