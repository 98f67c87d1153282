#include "app/DeviceListModel.h"

#include "app/MacModelNames.h"

#include "core/Clock.h"
#include "core/Csv.h"
#include "core/NotificationCenter.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"
#include "hubs/AcronamePort.h"
#include "restore/EventNotification.h"
#include "unattended/BenchPortModel.h"
#include "usb/USBManager.h"

#include <QMetaObject>
#include <QRegularExpression>

namespace app {
namespace {

constexpr std::int64_t appleVendor = 1452;

bool compatible(std::uint64_t a, std::uint64_t b) { return a == 0 || b == 0 || a == b; }
bool compatible(const QString& a, const QString& b) { return a.isEmpty() || b.isEmpty() || a == b; }

// Apple's own keyboards, mice and displays are no business of a bench: a device counts when it
// reports an ECID (boot ROM, recovery, restore) or names itself as a Mac or a mobile device.
bool isRestorable(const DeviceIOKitInfo& info) {
    static const QRegularExpression names(
        QStringLiteral("^(Mac|iMac|iPhone|iPad|iPod|Apple TV|Apple Watch|Apple Vision)"));
    return info.vendor == appleVendor && (info.ecid != 0 || names.match(info.productName).hasMatch());
}

// The output callback's "ECID:step:progress" status reads as just the step in a table.
QString statusText(const AC2Device& device) {
    const QString status = device.restoreStatus();
    const QString prefix = QString::number(device.ecid()) + ':';
    if (!status.startsWith(prefix))
        return status;
    const QString rest = status.mid(prefix.size());
    return rest.left(rest.lastIndexOf(':'));
}

QString hexLocation(std::int64_t location) {
    return QStringLiteral("0x") + QString::number(static_cast<quint64>(location), 16).toUpper();
}

}  // namespace

struct DeviceListModel::Row {
    std::shared_ptr<AC2Device> device;
    bool listed = false;  // in Apple Configurator's last listing
    bool onUSB = false;   // the registry last reported it present
    bool inRecovery = false;
    float progress = -1;
    QDateTime leftAt;  // when it stopped being either, for the grace period

    bool connected() const { return listed || onUSB; }
};

DeviceListModel::DeviceListModel(Collaborators collaborators, QObject* parent)
    : QAbstractTableModel(parent), c_(collaborators) {}

DeviceListModel::~DeviceListModel() {
    if (center_)
        for (const auto token : observers_) center_->removeObserver(token);
}

int DeviceListModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

int DeviceListModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant DeviceListModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    static const QStringList titles{"Name",     "Model",      "ECID", "Serial Number",
                                    "Location", "Hub : Port", "DFU",  "Restore Status"};
    return titles.value(section);
}

QVariant DeviceListModel::display(const Row& row, int column) const {
    const AC2Device& device = *row.device;
    switch (column) {
        case Name: return device.name();
        case Model: return MacModelNames::shipped().displayName(device.deviceType());
        case Ecid: return device.ecid() ? formatEcid(device.ecid()) : QString();
        case Serial: return device.serialNumber();
        case Location: return device.locationID() ? hexLocation(device.locationID()) : QString();
        case HubPort: {
            const unattended::BenchPort* bench = benchPortOf(row);
            if (!bench || bench->phase == unattended::PortPhase::empty)
                return hubPortOf(device);
            return QStringLiteral("%1 · %2").arg(bench->name, unattended::portPhaseTitle(bench->phase));
        }
        case DFU: return device.inDFU() ? QStringLiteral("Yes") : QStringLiteral("No");
        case Status: {
            const QString status = statusText(device);
            // A Mac being restored leaves the bus several times; that is no news.
            if (row.connected() || device.isRestoring())
                return status;
            return status.isEmpty() ? QStringLiteral("Disconnected")
                                    : status + QStringLiteral(" (disconnected)");
        }
    }
    return {};
}

QString DeviceListModel::hubPortOf(const AC2Device& device) const {
    if (device.port())
        return device.port()->name();
    return c_.hubPort ? c_.hubPort(device) : QString();
}

// A Mac that left keeps its row for a while; the port's phase is the next Mac's by then.
const unattended::BenchPort* DeviceListModel::benchPortOf(const Row& row) const {
    if (!portPhases_ || !(row.connected() || row.device->isRestoring()))
        return nullptr;
    const QString port = hubPortOf(*row.device);
    return port.isEmpty() ? nullptr : portPhases_->port(port);
}

void DeviceListModel::showPortPhases(const unattended::BenchPortModel& ports) {
    portPhases_ = &ports;
    connect(&ports, &unattended::BenchPortModel::portPhaseChanged, this,
            &DeviceListModel::hubPortsChanged);
    connect(&ports, &QAbstractItemModel::modelReset, this, &DeviceListModel::hubPortsChanged);
}

void DeviceListModel::hubPortsChanged() {
    if (!rows_.isEmpty())
        emit dataChanged(index(0, HubPort), index(int(rows_.size()) - 1, HubPort));
}

QVariant DeviceListModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= rows_.size())
        return {};
    const Row& row = rows_[index.row()];
    switch (role) {
        case Qt::DisplayRole:
            return display(row, index.column());
        case ProgressRole:
            return row.progress;
        case RecoveryRole:
            return row.inRecovery;
        case HubPortRole:
            return hubPortOf(*row.device);
        case SortRole:
            if (index.column() == Ecid)
                return QVariant::fromValue<quint64>(row.device->ecid());
            if (index.column() == Location)
                return QVariant::fromValue<qint64>(row.device->locationID());
            if (index.column() == HubPort)
                return hubPortOf(*row.device);
            return display(row, index.column());
        case Qt::ToolTipRole:
            if (index.column() == Model && !row.device->deviceType().isEmpty())
                return row.device->deviceType();
            if (index.column() == HubPort) {
                const unattended::BenchPort* bench = benchPortOf(row);
                return bench && !bench->reason.isEmpty() ? QVariant(bench->reason) : QVariant();
            }
            return index.column() == Status ? display(row, Status) : QVariant();
        default:
            return {};
    }
}

int DeviceListModel::findRow(const Identity& identity, bool byLocation) const {
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
    if (byLocation && identity.location != 0)
        for (qsizetype i = 0; i < rows_.size(); ++i) {
            const AC2Device& device = *rows_[i].device;
            if (device.locationID() == identity.location &&
                compatible(device.ecid(), identity.ecid) &&
                compatible(device.serialNumber(), identity.serialNumber))
                return static_cast<int>(i);
        }
    return -1;
}

int DeviceListModel::appendRow(std::shared_ptr<AC2Device> device) {
    const int row = static_cast<int>(rows_.size());
    beginInsertRows({}, row, row);
    Row fresh;
    fresh.device = std::move(device);
    rows_.append(fresh);
    endInsertRows();
    return row;
}

void DeviceListModel::changed(int row) {
    emit dataChanged(index(row, 0), index(row, ColumnCount - 1));
}

void DeviceListModel::applyListing(const configurator::DeviceList& listed) {
    QList<bool> seen(rows_.size(), false);
    for (const auto& fresh : listed) {
        int row = findRow({fresh->ecid(), fresh->serialNumber(), fresh->locationID()}, true);
        if (row < 0) {
            row = appendRow(std::make_shared<AC2Device>());
            seen.append(false);
        }
        AC2Device& device = *rows_[row].device;
        device.setEcid(fresh->ecid());
        device.setUdid(fresh->udid());
        device.setProductID(fresh->productID());
        // A listing taken while a Mac changes modes may lack the model it reported before.
        if (!fresh->deviceType().isEmpty())
            device.setDeviceType(fresh->deviceType());
        device.setLocationID(fresh->locationID());
        device.setInDFU(fresh->inDFU());
        device.setIoKitInfo(fresh->ioKitInfo());
        if (!fresh->name().isEmpty())
            device.setName(fresh->name());
        if (!fresh->serialNumber().isEmpty())
            device.setSerialNumber(fresh->serialNumber());
        if (fresh->port())
            device.setPort(fresh->port());
        rows_[row].listed = true;
        seen[row] = true;
        changed(row);
    }
    for (qsizetype i = 0; i < rows_.size(); ++i) {
        if (seen[i] || !rows_[i].listed)
            continue;
        rows_[i].listed = false;
        if (!rows_[i].connected())
            rows_[i].leftAt = c_.clock->now();
        changed(static_cast<int>(i));
    }
    purgeDisconnected();
}

void DeviceListModel::usbDevicesAdded(const QList<DeviceIOKitInfo>& devices) {
    for (const DeviceIOKitInfo& info : devices) {
        if (!isRestorable(info))
            continue;
        const Identity identity{static_cast<std::uint64_t>(info.ecid), info.serialNumber,
                                info.usbAddress};
        int row = findRow(identity, true);
        if (row < 0)
            row = appendRow(std::make_shared<AC2Device>());
        AC2Device& device = *rows_[row].device;
        if (identity.ecid != 0)
            device.setEcid(identity.ecid);
        if (!identity.serialNumber.isEmpty())
            device.setSerialNumber(identity.serialNumber);
        device.setLocationID(info.usbAddress);
        device.setInDFU(info.productName.contains(QLatin1String("DFU Mode")));
        rows_[row].inRecovery = info.productName.contains(QLatin1String("Recovery Mode"));
        if (device.name().isEmpty())
            device.setName(info.productName);
        if (device.deviceType().isEmpty() && info.chip != 0)
            device.setDeviceType(MacModelNames::shipped().identifierOfChip(info.chip, info.board));
        rows_[row].onUSB = true;
        rows_[row].leftAt = {};
        changed(row);
        postEvent(QStringLiteral("deviceAttached"), rows_[row].device);
    }
}

void DeviceListModel::usbDevicesRemoved(const QList<DeviceIOKitInfo>& devices) {
    for (const DeviceIOKitInfo& info : devices) {
        if (!isRestorable(info))
            continue;
        const int row = findRow({static_cast<std::uint64_t>(info.ecid), info.serialNumber,
                                 info.usbAddress},
                                true);
        if (row < 0)
            continue;
        // Whatever the listing said, the device is gone from the bus now.
        rows_[row].onUSB = false;
        rows_[row].listed = false;
        rows_[row].leftAt = c_.clock->now();
        changed(row);
        postEvent(QStringLiteral("deviceRemoved"), rows_[row].device);
    }
    purgeDisconnected();
}

void DeviceListModel::observe(core::NotificationCenter& center) {
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

void DeviceListModel::deviceStatusChanged(const std::shared_ptr<AC2Device>& device) {
    const int row = rowOf(device);
    if (row < 0)
        return;
    if (device->restoreStatus() == QLatin1String("Successful"))
        rows_[row].progress = 1;
    changed(row);
}

void DeviceListModel::deviceProgress(const std::shared_ptr<AC2Device>& device, float progress) {
    const int row = rowOf(device);
    if (row < 0 || progress < 0)
        return;
    rows_[row].progress = progress;
    changed(row);
}

void DeviceListModel::purgeDisconnected() {
    const QDateTime now = c_.clock->now();
    for (int i = static_cast<int>(rows_.size()) - 1; i >= 0; --i) {
        const Row& row = rows_[i];
        if (row.connected() || row.device->isRestoring() || !row.leftAt.isValid() ||
            row.leftAt.secsTo(now) < disconnectedGraceSeconds)
            continue;
        beginRemoveRows({}, i, i);
        rows_.removeAt(i);
        endRemoveRows();
    }
}

std::shared_ptr<AC2Device> DeviceListModel::deviceAt(int row) const {
    return row >= 0 && row < rows_.size() ? rows_[row].device : nullptr;
}

int DeviceListModel::rowOf(const std::shared_ptr<AC2Device>& device) const {
    for (qsizetype i = 0; i < rows_.size(); ++i)
        if (rows_[i].device == device)
            return static_cast<int>(i);
    return -1;
}

bool DeviceListModel::isConnected(int row) const {
    return row >= 0 && row < rows_.size() && rows_[row].connected();
}

void DeviceListModel::postEvent(const QString& event, const std::shared_ptr<AC2Device>& device) {
    if (!c_.events || !c_.settings->boolForKey(core::keys::shouldUseEventScript))
        return;
    c_.events->postEvent(event, true, device->deviceinfo(),
                         c_.settings->stringForKey(core::keys::eventScriptPath));
}

QString devicesCSV(const QList<std::shared_ptr<AC2Device>>& devices) {
    QString csv = QStringLiteral("UDID,ProductID,DeviceType,LocationID,SerialNumber\n");
    for (const auto& device : devices)
        csv += core::csvLine({device->udid(), device->productID(), device->deviceType(),
                              device->deviceinfo().value(QStringLiteral("locationID")).toString(),
                              device->serialNumber()});
    return csv;
}

}  // namespace app
