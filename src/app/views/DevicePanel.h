#pragma once

#include <QWidget>

class QAction;
class QCheckBox;
class QLabel;
class QMenu;
class QPushButton;
class QSortFilterProxyModel;
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

// What a port's context menu on the bench map can ask of the port.
enum class PortCommand { DFU, Restart, Recovery };

// The main window's device area: the restore controls, the device table with a progress bar per
// row or the bench map in its place, and the restore history under them. Everything it shows comes from the controller, the
// session and their models.
class DevicePanel : public QWidget {
    Q_OBJECT

  public:
    DevicePanel(app::DeviceTableController& controller, app::DeviceListModel& devices,
                restore::RestoreSession& session, app::HistoryModel& history,
                const app::DfuPortLookup& dfuPorts, app::BenchMap& benchMap,
                QWidget* parent = nullptr);

    QTableView* table() const { return table_; }
    BenchMapView* benchMap() const { return benchMapView_; }
    // The bench map in the table's place, or the table again; the selection stays the same.
    void showBenchMap(bool shown);
    QTableView* historyTable() const { return historyTable_; }
    // The device table above, the history below; the window remembers where it was dragged.
    QSplitter* splitter() const { return splitter_; }
    QPushButton* restoreButton() const { return restoreButton_; }
    QPushButton* cancelButton() const { return cancelButton_; }
    QLabel* notice() const { return notice_; }

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
    QWidget* buildControls();
    QWidget* buildTable();
    QWidget* buildBenchArea();
    void selectFromTile(int tile, bool extend);
    void showTileMenu(int tile, const QPoint& globalPosition);
    void addDfuPortHint(QMenu& menu, const QString& deviceType) const;
    QWidget* buildHistory();
    void bindSession();
    void showContextMenu(const QPoint& position);
    void showNotice(const QString& text, bool error);
    void updateButtons();
    bool saveText(const QString& title, const QString& fileName, const QString& text);

    app::DeviceTableController& controller_;
    app::DeviceListModel& devices_;
    restore::RestoreSession& session_;
    app::HistoryModel& history_;
    const app::DfuPortLookup& dfuPorts_;
    QSortFilterProxyModel* sorted_ = nullptr;
    QTableView* table_ = nullptr;
    QTableView* historyTable_ = nullptr;
    QSplitter* splitter_ = nullptr;
    app::BenchMap& benchMap_;
    BenchMapView* benchMapView_ = nullptr;
    QStackedWidget* benchArea_ = nullptr;
    QPushButton* restoreButton_ = nullptr;
    QPushButton* cancelButton_ = nullptr;
    QPushButton* refreshButton_ = nullptr;
    QLabel* restoreTime_ = nullptr;
    QLabel* freeSpace_ = nullptr;
    QLabel* restored_ = nullptr;
    QLabel* notice_ = nullptr;
    QCheckBox* removeCache_ = nullptr;
};

}  // namespace views
