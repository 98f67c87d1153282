#pragma once

#include "app/HubDevice.h"

#include <QAbstractTableModel>
#include <QList>

namespace app {

// The hub window's table: one row per usable hub port, in the order the manager lists them.
class HubTableModel : public QAbstractTableModel {
    Q_OBJECT

  public:
    enum Column {
        HubSerial,
        FirmwareVersion,
        Port,
        Voltage,
        Current,
        Power,
        Connected,
        ColumnCount
    };

    explicit HubTableModel(QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

    const QList<HubDevice>& hubDevices() const { return hubDevices_; }
    void setHubDevices(QList<HubDevice> rows);

    // The text of one cell, as the table shows it.
    static QString cellText(const HubDevice& row, int column);

  private:
    QList<HubDevice> hubDevices_;
};

}  // namespace app
