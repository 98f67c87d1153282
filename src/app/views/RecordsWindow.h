#pragma once

#include "app/RecordsTableModel.h"

#include <QWidget>

#include <memory>

class QComboBox;
class QDateEdit;
class QLabel;
class QLineEdit;
class QTableView;

namespace records {
class RecordStore;
}

namespace views {

// The bench's restore records: a date range, a search by serial number or ECID, the outcome,
// export to CSV and a certificate for the selected Macs. One window a process (Window ▸ Records).
class RecordsWindow : public QWidget {
    Q_OBJECT

  public:
    explicit RecordsWindow(const QString& databasePath, QWidget* parent = nullptr);
    ~RecordsWindow() override;

    // Shows the process's Records window, making it the first time.
    static RecordsWindow* showShared();

    void refresh();
    // Writes the shown records to `path`; false, with a message shown, when it could not.
    bool exportCsv(const QString& path);
    // Writes a certificate for the selected records to `path`; false, with the reason shown,
    // when one is refused (an outcome other than restored) or cannot be written.
    bool writeCertificate(const QString& path);

    app::RecordsTableModel& model() { return *model_; }
    QTableView* table() const { return table_; }
    QLineEdit* search() const { return search_; }
    QComboBox* outcome() const { return outcome_; }
    QDateEdit* from() const { return from_; }
    QString status() const;

  private:
    void showStatus(const QString& text);

    std::unique_ptr<records::RecordStore> store_;
    std::unique_ptr<app::RecordsTableModel> model_;
    QDateEdit* from_ = nullptr;
    QDateEdit* to_ = nullptr;
    QLineEdit* search_ = nullptr;
    QComboBox* outcome_ = nullptr;
    QTableView* table_ = nullptr;
    QLabel* status_ = nullptr;
};

}  // namespace views
