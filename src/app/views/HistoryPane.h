#pragma once

#include <QWidget>

class QTableView;

namespace app {
class HistoryModel;
}

namespace views {

// The restore history under the device table, newest at the bottom, with its export button.
class HistoryPane : public QWidget {
    Q_OBJECT

  public:
    explicit HistoryPane(app::HistoryModel& history, QWidget* parent = nullptr);

    QTableView* table() const { return table_; }

  signals:
    void exportRequested();

  private:
    QTableView* table_;
};

}  // namespace views
