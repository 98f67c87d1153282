#pragma once

#include "views/PortCommand.h"

#include <QWidget>

class QLabel;
class QPushButton;
class QSplitter;
class QStackedWidget;
class QTableView;

namespace app {
class BenchMap;
class DeviceTableController;
class DeviceListModel;
class DfuPortLookup;
class HistoryModel;
}  // namespace app
namespace restore {
class RestoreSession;
}

namespace views {

class BenchMapView;
class DeviceMenus;
class DeviceTableView;
class HistoryPane;
class RestoreControls;
class RestoreNotice;

// The main window's device area: the restore controls, the device table with a progress bar per
// row or the bench map in its place, and the restore history under them. Everything it shows
// comes from the controller, the session and their models.
class DevicePanel : public QWidget {
    Q_OBJECT

  public:
    DevicePanel(app::DeviceTableController& controller, app::DeviceListModel& devices,
                restore::RestoreSession& session, app::HistoryModel& history,
                const app::DfuPortLookup& dfuPorts, app::BenchMap& benchMap,
                QWidget* parent = nullptr);

    QTableView* table() const;
    BenchMapView* benchMap() const { return benchMapView_; }
    // The bench map in the table's place, or the table again; the selection stays the same.
    void showBenchMap(bool shown);
    QTableView* historyTable() const;
    // The device table above, the history below; the window remembers where it was dragged.
    QSplitter* splitter() const { return splitter_; }
    QPushButton* restoreButton() const;
    QPushButton* cancelButton() const;
    QLabel* notice() const;

    // The selected rows of the device model, in the order the table shows them.
    QList<int> selectedRows() const;

    void copySerialNumbers();
    void exportSelection();
    void exportHistory();

  signals:
    // The bench map's context menu asked for a port's sequence; `port` is empty for this
    // computer's own DFU port.
    void portCommandRequested(const QString& port, views::PortCommand command);

  private:
    QWidget* buildBenchArea();
    void bindMenus();
    void selectFromTile(int tile, bool extend);
    void updateButtons();

    app::DeviceTableController& controller_;
    restore::RestoreSession& session_;
    app::BenchMap& benchMap_;
    RestoreControls* controls_;
    RestoreNotice* notice_;
    DeviceTableView* table_;
    BenchMapView* benchMapView_;
    QStackedWidget* benchArea_ = nullptr;
    HistoryPane* history_;
    QSplitter* splitter_ = nullptr;
    DeviceMenus* menus_;
};

}  // namespace views
