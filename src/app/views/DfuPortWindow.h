#pragma once

#include <QWidget>

class QLineEdit;
class QTableView;

namespace app {
class DfuPortLookup;
}

namespace views {

// Which port of a Mac to cable for DFU, searchable by model, identifier or port text.
class DfuPortWindow : public QWidget {
    Q_OBJECT

  public:
    explicit DfuPortWindow(app::DfuPortLookup& lookup, QWidget* parent = nullptr);

    QLineEdit* search() const { return search_; }
    QTableView* table() const { return table_; }

  private:
    app::DfuPortLookup& lookup_;
    QLineEdit* search_;
    QTableView* table_;
};

}  // namespace views
