#include "app/DeviceListModel.h"

#include "configurator/AC2Device.h"
#include "hubs/AcronamePort.h"
#include "unattended/BenchPortModel.h"
#include "usb/MacModelNames.h"

namespace app {
namespace {

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

DeviceListModel::DeviceListModel(Collaborators collaborators, QObject* parent)
    : QAbstractTableModel(parent),
      hubPort_(std::move(collaborators.hubPort)),
      roster_(*collaborators.clock) {
    followRoster();
}

void DeviceListModel::followRoster() {
    connect(&roster_, &restore::DeviceRoster::rowAboutToBeAdded, this,
            [this](int row) { beginInsertRows({}, row, row); });
    connect(&roster_, &restore::DeviceRoster::rowAdded, this, [this] { endInsertRows(); });
    connect(&roster_, &restore::DeviceRoster::rowAboutToBeRemoved, this, [this](int row) {
        beginRemoveRows({}, row, row);
        progress_.remove(roster_.deviceAt(row).get());
    });
    connect(&roster_, &restore::DeviceRoster::rowRemoved, this, [this] { endRemoveRows(); });
    connect(&roster_, &restore::DeviceRoster::rowChanged, this, &DeviceListModel::changed);
}

int DeviceListModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : roster_.size();
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

QVariant DeviceListModel::display(int row, int column) const {
    const AC2Device& device = *roster_.deviceAt(row);
    switch (column) {
        case Name:
            return device.name();
        case Model:
            return usb::MacModelNames::shipped().displayName(device.deviceType());
        case Ecid:
            return device.ecid() ? formatEcid(device.ecid()) : QString();
        case Serial:
            return device.serialNumber();
        case Location:
            return device.locationID() ? hexLocation(device.locationID()) : QString();
        case HubPort: {
            const unattended::BenchPort* bench = benchPortOf(row);
            if (!bench || bench->phase == unattended::PortPhase::empty)
                return hubPortOf(device);
            return QStringLiteral("%1 · %2").arg(bench->name,
                                                 unattended::portPhaseTitle(bench->phase));
        }
        case DFU:
            return device.inDFU() ? QStringLiteral("Yes") : QStringLiteral("No");
        case Status: {
            const QString status = statusText(device);
            // A Mac being restored leaves the bus several times; that is no news.
            if (roster_.isConnected(row) || device.isRestoring())
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
    return hubPort_ ? hubPort_(device) : QString();
}

// A Mac that left keeps its row for a while; the port's phase is the next Mac's by then.
const unattended::BenchPort* DeviceListModel::benchPortOf(int row) const {
    const AC2Device& device = *roster_.deviceAt(row);
    if (!portPhases_ || !(roster_.isConnected(row) || device.isRestoring()))
        return nullptr;
    const QString port = hubPortOf(device);
    return port.isEmpty() ? nullptr : portPhases_->port(port);
}

void DeviceListModel::showPortPhases(const unattended::BenchPortModel& ports) {
    portPhases_ = &ports;
    connect(&ports, &unattended::BenchPortModel::portPhaseChanged, this,
            &DeviceListModel::hubPortsChanged);
    connect(&ports, &QAbstractItemModel::modelReset, this, &DeviceListModel::hubPortsChanged);
}

void DeviceListModel::hubPortsChanged() {
    if (roster_.size() > 0)
        emit dataChanged(index(0, HubPort), index(roster_.size() - 1, HubPort));
}

QVariant DeviceListModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= roster_.size())
        return {};
    const int row = index.row();
    switch (role) {
        case Qt::DisplayRole:
            return display(row, index.column());
        case ProgressRole:
            return progressOf(*roster_.deviceAt(row));
        case RecoveryRole:
            return roster_.isInRecovery(row);
        case HubPortRole:
            return hubPortOf(*roster_.deviceAt(row));
        case SortRole:
            return sortKey(row, index.column());
        case Qt::ToolTipRole:
            return toolTip(row, index.column());
        default:
            return {};
    }
}

QVariant DeviceListModel::sortKey(int row, int column) const {
    const AC2Device& device = *roster_.deviceAt(row);
    if (column == Ecid)
        return QVariant::fromValue<quint64>(device.ecid());
    if (column == Location)
        return QVariant::fromValue<qint64>(device.locationID());
    if (column == HubPort)
        return hubPortOf(device);
    return display(row, column);
}

QVariant DeviceListModel::toolTip(int row, int column) const {
    const AC2Device& device = *roster_.deviceAt(row);
    if (column == Model && !device.deviceType().isEmpty())
        return device.deviceType();
    if (column == HubPort) {
        const unattended::BenchPort* bench = benchPortOf(row);
        return bench && !bench->reason.isEmpty() ? QVariant(bench->reason) : QVariant();
    }
    return column == Status ? display(row, Status) : QVariant();
}

float DeviceListModel::progressOf(const AC2Device& device) const {
    return progress_.value(&device, -1);
}

void DeviceListModel::changed(int row) {
    emit dataChanged(index(row, 0), index(row, ColumnCount - 1));
}

void DeviceListModel::deviceStatusChanged(const std::shared_ptr<AC2Device>& device) {
    const int row = roster_.rowOf(device);
    if (row < 0)
        return;
    if (device->restoreStatus() == QLatin1String("Successful"))
        progress_.insert(device.get(), 1);
    changed(row);
}

void DeviceListModel::deviceProgress(const std::shared_ptr<AC2Device>& device, float progress) {
    const int row = roster_.rowOf(device);
    if (row < 0 || progress < 0)
        return;
    progress_.insert(device.get(), progress);
    changed(row);
}

}  // namespace app
