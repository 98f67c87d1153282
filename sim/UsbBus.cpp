#include "UsbBus.h"

#include "Hub.h"
#include "Mac.h"
#include "MacModels.h"

#include <QHash>

namespace sim {

namespace {

constexpr int acronameVendor = 0x24FF;
constexpr int appleVendor = 0x05AC;

}  // namespace

UsbIdentity UsbIdentity::of(const QJsonObject& device) {
    return {device.value(QLatin1String("locationID")).toInteger(),
            device.value(QLatin1String("idVendor")).toInt(),
            device.value(QLatin1String("idProduct")).toInt(),
            device.value(QLatin1String("kUSBSerialNumberString")).toString()};
}

size_t qHash(const UsbIdentity& identity, size_t seed) {
    return qHashMulti(seed, identity.location, identity.vendor, identity.product, identity.serial);
}

namespace {

QJsonObject device(int vendor, int product, std::uint32_t location, const QString& serial,
                   const QString& productName) {
    return {
        {QStringLiteral("idVendor"), vendor},
        {QStringLiteral("idProduct"), product},
        {QStringLiteral("locationID"), static_cast<qint64>(location)},
        {QStringLiteral("kUSBSerialNumberString"), serial},
        {QStringLiteral("kUSBProductString"), productName},
        {QStringLiteral("USB Vendor Name"),
         vendor == appleVendor ? QStringLiteral("Apple Inc.") : QStringLiteral("Acroname Inc.")}};
}

QString hexSerial(const Hub& hub) {
    return QStringLiteral("%1").arg(hub.serial(), 8, 16, QLatin1Char('0')).toUpper();
}

QString hexDigits(qulonglong value, int width) {
    return QStringLiteral("%1").arg(value, width, 16, QLatin1Char('0')).toUpper();
}

QString bootRomSerial(const Mac& mac, const QString& tail) {
    const ChipIdentity chip = chipIdentity(mac.config().deviceType);
    return QStringLiteral("CPID:%1 CPRV:11 CPFM:03 SCEP:01 BDID:%2 ECID:%3 IBFL:3C %4")
        .arg(hexDigits(chip.cpid, 4), hexDigits(chip.bdid, 2),
             hexDigits(static_cast<qulonglong>(mac.config().ecid), 16), tail);
}

QJsonObject foreignDevice(int vendor, int product, std::uint32_t location, const QString& serial,
                          const QString& productName, const QString& vendorName) {
    QJsonObject result = device(vendor, product, location, serial, productName);
    result.insert(QStringLiteral("USB Vendor Name"), vendorName);
    return result;
}

}  // namespace

QJsonObject hubUsbDevice(const Hub& hub) {
    return device(acronameVendor, 0x0014, hub.location(), hexSerial(hub),
                  QStringLiteral("USBHub3c"));
}

QJsonObject hubSuperSpeedUsbDevice(const Hub& hub) {
    return device(acronameVendor, 0x0016, hub.location() + (1u << 24), hexSerial(hub),
                  QStringLiteral("USBHub3c"));
}

QJsonObject hubBillboardUsbDevice(const Hub& hub) {
    return foreignDevice(0x2109, 0x8884, hub.location(), QStringLiteral("0000000000000001"),
                         QStringLiteral("USB Billboard Device"), QStringLiteral("VIA Labs, Inc."));
}

QJsonObject rootHubUsbDevice(int bus) {
    return foreignDevice(0x1D6B, bus == 1 ? 0x0002 : 0x0003, static_cast<std::uint32_t>(bus) << 24,
                         QStringLiteral("0000:00:14.0"), QStringLiteral("xHCI Host Controller"),
                         QStringLiteral("Linux Foundation"));
}

QList<QJsonObject> benchPeripherals() {
    // A keyboard and a card reader on the technician's own hub on a third bus; the keyboard is
    // Apple's, so the vendor alone never identifies a Mac.
    return {
        rootHubUsbDevice(3),
        foreignDevice(0x05E3, 0x0610, 0x03100000, QString(), QStringLiteral("USB2.0 Hub"),
                      QStringLiteral("Genesys Logic, Inc.")),
        foreignDevice(appleVendor, 0x029C, 0x03110000, QStringLiteral("F0T1234567890ABC-KB"),
                      QStringLiteral("Magic Keyboard"), QStringLiteral("Apple Inc.")),
        foreignDevice(0x05E3, 0x0749, 0x03120000, QStringLiteral("000000001206"),
                      QStringLiteral("USB3.0 Card Reader"), QStringLiteral("Genesys Logic, Inc."))};
}

QJsonObject hubStemUsbDevice(const Hub& hub) {
    return device(acronameVendor, 0x0015, hub.location() | 8u << 16, hexSerial(hub),
                  QStringLiteral("USBHub3c-Stem"));
}

namespace {

// The USB identity of a Mac as its boot stage shows it.
QJsonObject macIdentity(const Mac& mac, MacState state, std::uint32_t location) {
    QJsonObject result;
    switch (state) {
        case MacState::Off:
            return {};
        case MacState::Booted:
            return device(appleVendor, 0x1905, location, mac.config().serialNumber,
                          QStringLiteral("Mac"));
        case MacState::Dfu:
            result = device(appleVendor, 0x1227, location,
                            bootRomSerial(mac, QStringLiteral("SRTG:[iBoot-7459.121.3]")),
                            QStringLiteral("Apple Mobile Device (DFU Mode)"));
            break;
        case MacState::Restoring:
            if (mac.restoreStage() == RestoreStage::Dfu)
                return macIdentity(mac, MacState::Dfu, location);
            if (mac.restoreStage() == RestoreStage::RestoreOS) {
                result = device(
                    appleVendor, 0x1281, location,
                    bootRomSerial(mac, QStringLiteral("SRNM:[%1]").arg(mac.config().serialNumber)),
                    QStringLiteral("Apple Mobile Device (Restore Mode)"));
                break;
            }
            [[fallthrough]];
        case MacState::Recovery:
            result = device(
                appleVendor, 0x1281, location,
                bootRomSerial(mac, QStringLiteral("SRNM:[%1]").arg(mac.config().serialNumber)),
                QStringLiteral("Apple Mobile Device (Recovery Mode)"));
            break;
    }
    result.insert(QStringLiteral("UsbAppleDeviceECID"),
                  QString::number(static_cast<qulonglong>(mac.config().ecid)));
    return result;
}

}  // namespace

QJsonObject macUsbDevice(const Mac& mac, std::uint32_t location) {
    return macIdentity(mac, mac.state(), location);
}

// Each device's identity is read once a view: the bus is published after every change a Mac or hub
// goes through, and building identities as text made that the simulator's busiest code.
std::vector<UsbChange> UsbBus::update(const QList<QJsonObject>& current) {
    QHash<UsbIdentity, qsizetype> before;
    before.reserve(published_.size());
    for (qsizetype index = 0; index < published_.size(); ++index)
        before.insert(published_[index].identity, index);

    std::vector<UsbChange> added;
    std::vector<bool> kept(static_cast<std::size_t>(published_.size()), false);
    QList<Published> next;
    next.reserve(current.size());
    for (const QJsonObject& candidate : current) {
        UsbIdentity identity = UsbIdentity::of(candidate);
        if (const auto found = before.constFind(identity); found != before.constEnd()) {
            next << published_[*found];
            kept[static_cast<std::size_t>(*found)] = true;
            continue;
        }
        QJsonObject arrival = candidate;
        arrival.insert(QStringLiteral("sessionID"), QStringLiteral("sim-%1").arg(nextSession_++));
        next << Published{std::move(identity), arrival};
        added.push_back({true, arrival});
    }
    std::vector<UsbChange> changes;
    for (qsizetype index = 0; index < published_.size(); ++index)
        if (!kept[static_cast<std::size_t>(index)])
            changes.push_back({false, published_[index].device});
    changes.insert(changes.end(), added.begin(), added.end());
    published_ = std::move(next);
    return changes;
}

QJsonArray UsbBus::devices() const {
    QJsonArray result;
    for (const Published& entry : published_) result.append(entry.device);
    return result;
}

}  // namespace sim
