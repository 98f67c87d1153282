#include "app/HubTableModel.h"

#include "core/HubPortName.h"

#include <cmath>

namespace app {
namespace {

QString oneDecimal(double value) {
    return QString::asprintf("%.1f", value);
}

// Numbers line up on their last digit.
Qt::Alignment alignment(int column) {
    if (column >= HubTableModel::Port && column <= HubTableModel::Power)
        return Qt::AlignRight | Qt::AlignVCenter;
    if (column == HubTableModel::Connected)
        return Qt::AlignCenter;
    return Qt::AlignLeft | Qt::AlignVCenter;
}

}  // namespace

HubTableModel::HubTableModel(QObject* parent) : QAbstractTableModel(parent) {}

int HubTableModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(hubDevices_.size());
}

int HubTableModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant HubTableModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= hubDevices_.size())
        return {};
    if (role == Qt::DisplayRole)
        return cellText(hubDevices_[index.row()], index.column());
    if (role == Qt::TextAlignmentRole)
        return QVariant::fromValue(alignment(index.column()));
    return {};
}

QVariant HubTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    switch (section) {
        case HubSerial:
            return QStringLiteral("Hub Serial");
        case FirmwareVersion:
            return QStringLiteral("Firmware Version");
        case Port:
            return QStringLiteral("Port");
        case Voltage:
            return QStringLiteral("Voltage (V)");
        case Current:
            return QStringLiteral("Current (A)");
        case Power:
            return QStringLiteral("Power (W)");
        case Connected:
            return QStringLiteral("Connected");
        default:
            return {};
    }
}

void HubTableModel::setHubDevices(QList<HubDevice> rows) {
    beginResetModel();
    hubDevices_ = std::move(rows);
    endResetModel();
}

QString HubTableModel::cellText(const HubDevice& row, int column) {
    const double voltage = row.acronamePort ? row.acronamePort->vBusVoltage() : 0.0;
    const double current = row.acronamePort ? row.acronamePort->vBusCurrent() : 0.0;
    switch (column) {
        // Hexadecimal, as the hub's label and tarvel-cli write it.
        case HubSerial:
            return core::hubName(row.hubSerialNumber);
        case FirmwareVersion:
            return row.hubFirmwareVersion;
        case Port:
            return QString::number(row.portID);
        case Voltage:
            return oneDecimal(voltage);
        case Current:
            return oneDecimal(current);
        case Power:
            return oneDecimal(std::fabs(voltage * current));
        case Connected:
            return row.isConnected ? QStringLiteral("Yes") : QStringLiteral("No");
        default:
            return {};
    }
}

}  // namespace app
