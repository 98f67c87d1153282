#include "restore/DeviceRoster.h"

#include "core/Clock.h"
#include "core/NotificationCenter.h"
#include "usb/MacModelNames.h"
#include "usb/USBManager.h"

#include <QMetaObject>
#include <QRegularExpression>

namespace restore {
namespace {

bool compatible(std::uint64_t a, std::uint64_t b) {
    return a == 0 || b == 0 || a == b;
}
bool compatible(const QString& a, const QString& b) {
    return a.isEmpty() || b.isEmpty() || a == b;
}

// Apple's own keyboards, mice and displays are no business of a bench: a device counts when it
// reports an ECID (boot ROM, recovery, restore) or names itself as a Mac or a mobile device.
bool isRestorable(const DeviceIOKitInfo& info) {
    static const QRegularExpression names(
        QStringLiteral("^(Mac|iMac|iPhone|iPad|iPod|Apple TV|Apple Watch|Apple Vision)"));
    return info.vendor == configurator::appleVendorID &&
           (info.ecid != 0 || names.match(info.productName).hasMatch());
}

}  // namespace

DeviceRoster::DeviceRoster(core::Clock& clock, QObject* parent) : QObject(parent), clock_(clock) {}

DeviceRoster::~DeviceRoster() {
    if (center_)
        for (const auto token : observers_) center_->removeObserver(token);
}

std::shared_ptr<AC2Device> DeviceRoster::deviceAt(int row) const {
    return row >= 0 && row < rows_.size() ? rows_[row].device : nullptr;
}

int DeviceRoster::rowOf(const std::shared_ptr<AC2Device>& device) const {
    for (qsizetype i = 0; i < rows_.size(); ++i)
        if (rows_[i].device == device)
            return static_cast<int>(i);
    return -1;
}

bool DeviceRoster::isConnected(int row) const {
    return row >= 0 && row < rows_.size() && rows_[row].connected();
}

bool DeviceRoster::isInRecovery(int row) const {
    return row >= 0 && row < rows_.size() && rows_[row].inRecovery;
}

int DeviceRoster::findRow(const Identity& identity) const {
    if (identity.ecid != 0)
        for (qsizetype i = 0; i < rows_.size(); ++i)
            if (rows_[i].device->ecid() == identity.ecid)
                return static_cast<int>(i);
    // The same serial number with two different ECIDs is two devices.
    if (!identity.serialNumber.isEmpty())
        for (qsizetype i = 0; i < rows_.size(); ++i) {
            const AC2Device& device = *rows_[i].device;
            if (device.serialNumber() == identity.serialNumber &&
                compatible(device.ecid(), identity.ecid))
                return static_cast<int>(i);
        }
    // A Mac that changes modes comes back at its port's location under another identity.
    if (identity.location != 0)
        for (qsizetype i = 0; i < rows_.size(); ++i) {
            const AC2Device& device = *rows_[i].device;
            if (device.locationID() == identity.location &&
                compatible(device.ecid(), identity.ecid) &&
                compatible(device.serialNumber(), identity.serialNumber))
                return static_cast<int>(i);
        }
    return -1;
}

int DeviceRoster::appendRow() {
    const int row = static_cast<int>(rows_.size());
    emit rowAboutToBeAdded(row);
    Row fresh;
    fresh.device = std::make_shared<AC2Device>();
    rows_.append(fresh);
    emit rowAdded(row);
    return row;
}

void DeviceRoster::applyListing(const configurator::DeviceList& listed) {
    QList<bool> seen(rows_.size(), false);
    for (const auto& fresh : listed) {
        int row = findRow({fresh->ecid(), fresh->serialNumber(), fresh->locationID()});
        if (row < 0) {
            row = appendRow();
            seen.append(false);
        }
        takeListed(row, *fresh);
        seen[row] = true;
        emit rowChanged(row);
    }
    markUnlisted(seen);
    purgeDisconnected();
}

void DeviceRoster::takeListed(int row, const AC2Device& fresh) {
    AC2Device& device = *rows_[row].device;
    device.setEcid(fresh.ecid());
    device.setUdid(fresh.udid());
    device.setProductID(fresh.productID());
    // A listing taken while a Mac changes modes may lack the model it reported before.
    if (!fresh.deviceType().isEmpty())
        device.setDeviceType(fresh.deviceType());
    device.setLocationID(fresh.locationID());
    device.setInDFU(fresh.inDFU());
    device.setIoKitInfo(fresh.ioKitInfo());
    if (!fresh.name().isEmpty())
        device.setName(fresh.name());
    if (!fresh.serialNumber().isEmpty())
        device.setSerialNumber(fresh.serialNumber());
    if (fresh.port())
        device.setPort(fresh.port());
    rows_[row].listed = true;
}

void DeviceRoster::markUnlisted(const QList<bool>& seen) {
    for (qsizetype i = 0; i < rows_.size(); ++i) {
        if (seen[i] || !rows_[i].listed)
            continue;
        rows_[i].listed = false;
        if (!rows_[i].connected())
            rows_[i].leftAt = clock_.now();
        emit rowChanged(static_cast<int>(i));
    }
}

void DeviceRoster::usbDevicesAdded(const QList<DeviceIOKitInfo>& devices) {
    for (const DeviceIOKitInfo& info : devices) {
        if (!isRestorable(info))
            continue;
        int row =
            findRow({static_cast<std::uint64_t>(info.ecid), info.serialNumber, info.usbAddress});
        if (row < 0)
            row = appendRow();
        takeArrival(row, info);
        emit rowChanged(row);
        emit attached(rows_[row].device);
    }
}

void DeviceRoster::takeArrival(int row, const DeviceIOKitInfo& info) {
    AC2Device& device = *rows_[row].device;
    if (info.ecid != 0)
        device.setEcid(static_cast<std::uint64_t>(info.ecid));
    if (!info.serialNumber.isEmpty())
        device.setSerialNumber(info.serialNumber);
    device.setLocationID(info.usbAddress);
    device.setInDFU(info.productName.contains(QLatin1String("DFU Mode")));
    rows_[row].inRecovery = info.productName.contains(QLatin1String("Recovery Mode"));
    if (device.name().isEmpty())
        device.setName(info.productName);
    if (device.deviceType().isEmpty() && info.chip != 0)
        device.setDeviceType(usb::MacModelNames::shipped().identifierOfChip(info.chip, info.board));
    rows_[row].onUSB = true;
    rows_[row].leftAt = {};
}

void DeviceRoster::usbDevicesRemoved(const QList<DeviceIOKitInfo>& devices) {
    for (const DeviceIOKitInfo& info : devices) {
        if (!isRestorable(info))
            continue;
        const int row =
            findRow({static_cast<std::uint64_t>(info.ecid), info.serialNumber, info.usbAddress});
        if (row < 0)
            continue;
        // Whatever the listing said, the device is gone from the bus now.
        rows_[row].onUSB = false;
        rows_[row].listed = false;
        rows_[row].leftAt = clock_.now();
        emit rowChanged(row);
        emit detached(rows_[row].device);
    }
    purgeDisconnected();
}

void DeviceRoster::observe(core::NotificationCenter& center) {
    center_ = &center;
    std::weak_ptr<int> alive = lifetime_;
    const auto forward = [this, alive](bool added, const QVariantMap& userInfo) {
        const QList<DeviceIOKitInfo> devices = USBManager::devicesInUserInfo(userInfo);
        QMetaObject::invokeMethod(this, [this, alive, added, devices] {
            if (alive.expired())
                return;
            added ? usbDevicesAdded(devices) : usbDevicesRemoved(devices);
        });
    };
    observers_.push_back(center.addObserver(
        USBManager::deviceAddedNotification,
        [forward](const QString&, const QVariantMap& info) { forward(true, info); }));
    observers_.push_back(center.addObserver(
        USBManager::deviceRemovedNotification,
        [forward](const QString&, const QVariantMap& info) { forward(false, info); }));
}

void DeviceRoster::purgeDisconnected() {
    const QDateTime now = clock_.now();
    for (int i = static_cast<int>(rows_.size()) - 1; i >= 0; --i) {
        const Row& row = rows_[i];
        if (row.connected() || row.device->isRestoring() || !row.leftAt.isValid() ||
            row.leftAt.secsTo(now) < disconnectedGraceSeconds)
            continue;
        emit rowAboutToBeRemoved(i);
        rows_.removeAt(i);
        emit rowRemoved(i);
    }
}

}  // namespace restore
