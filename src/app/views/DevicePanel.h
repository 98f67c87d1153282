#pragma once

#include <QWidget>

class QAction;
class QCheckBox;
class QLabel;
class QPushButton;
class QSortFilterProxyModel;
class QSplitter;
class QTableView;

namespace app {
class DeviceTableController;
class DeviceListModel;
class DfuPortLookup;
class HistoryModel;
}  // namespace app
namespace restore {
class RestoreSession;
}

namespace views {

// The main window's device area: the restore controls, the device table with a progress bar per
// row, and the restore history under it. Everything it shows comes from the controller, the
// session and their models.
class DevicePanel : public QWidget {
    Q_OBJECT

  public:
    DevicePanel(app::DeviceTableController& controller, app::DeviceListModel& devices,
                restore::RestoreSession& session, app::HistoryModel& history,
                const app::DfuPortLookup& dfuPorts, QWidget* parent = nullptr);

    QTableView* table() const { return table_; }
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

  private:
    QWidget* buildControls();
    QWidget* buildTable();
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
