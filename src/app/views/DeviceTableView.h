#pragma once

#include <QList>
#include <QTableView>

class QSortFilterProxyModel;

namespace app {
class DeviceListModel;
class DeviceTableController;
}  // namespace app

namespace views {

// The device table: sorted by location at first, the restore status with its progress bar, the
// columns fitted when Macs come, and Copy for the selection's serial numbers.
class DeviceTableView : public QTableView {
    Q_OBJECT

  public:
    DeviceTableView(app::DeviceListModel& devices, app::DeviceTableController& controller,
                    QWidget* parent = nullptr);

    // The selected rows of the device model, in the order the table shows them.
    QList<int> selectedRows() const;
    // Selects the device model's `row`, besides the selection (toggled) or in its place.
    void selectDevice(int row, bool extend);

  signals:
    void copyRequested();

  private:
    void fitColumnsWhenMacsCome(app::DeviceTableController& controller);

    app::DeviceListModel& devices_;
    QSortFilterProxyModel* sorted_;
};

}  // namespace views
