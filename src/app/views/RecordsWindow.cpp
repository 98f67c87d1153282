#include "views/RecordsWindow.h"

#include "records/Certificate.h"
#include "records/RecordCsv.h"
#include "records/RecordStore.h"

#include <QComboBox>
#include <QDateEdit>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QSaveFile>
#include <QTableView>
#include <QVBoxLayout>

namespace views {

RecordsWindow::RecordsWindow(const QString& databasePath, QWidget* parent)
    : QWidget(parent, Qt::Window),
      store_(std::make_unique<records::RecordStore>(databasePath)),
      model_(std::make_unique<app::RecordsTableModel>(*store_)) {
    setWindowTitle(QStringLiteral("Records"));
    resize(980, 520);

    from_ = new QDateEdit(QDate::currentDate().addDays(-30));
    to_ = new QDateEdit(QDate::currentDate());
    for (QDateEdit* edit : {from_, to_}) {
        edit->setCalendarPopup(true);
        edit->setDisplayFormat(QStringLiteral("yyyy-MM-dd"));
        connect(edit, &QDateEdit::dateChanged, this, &RecordsWindow::refresh);
    }
    search_ = new QLineEdit;
    search_->setPlaceholderText(QStringLiteral("Serial number or ECID"));
    search_->setClearButtonEnabled(true);
    connect(search_, &QLineEdit::returnPressed, this, &RecordsWindow::refresh);
    outcome_ = new QComboBox;
    outcome_->addItem(QStringLiteral("Any outcome"));
    for (const char* name : {"restored", "failed", "cancelled", "abandoned"})
        outcome_->addItem(QString::fromLatin1(name), QString::fromLatin1(name));
    connect(outcome_, &QComboBox::currentIndexChanged, this, &RecordsWindow::refresh);

    auto* filters = new QHBoxLayout;
    filters->addWidget(new QLabel(QStringLiteral("From")));
    filters->addWidget(from_);
    filters->addWidget(new QLabel(QStringLiteral("to")));
    filters->addWidget(to_);
    filters->addWidget(search_, 1);
    filters->addWidget(outcome_);

    table_ = new QTableView;
    table_->setModel(model_.get());
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    table_->setSortingEnabled(false);
    table_->verticalHeader()->hide();
    table_->horizontalHeader()->setStretchLastSection(true);

    auto* refreshButton = new QPushButton(QStringLiteral("Refresh"));
    connect(refreshButton, &QPushButton::clicked, this, &RecordsWindow::refresh);
    auto* exportButton = new QPushButton(QStringLiteral("Export CSV…"));
    connect(exportButton, &QPushButton::clicked, this, [this] {
        const QString path = QFileDialog::getSaveFileName(this, QStringLiteral("Export Records"),
                                                          QStringLiteral("records.csv"),
                                                          QStringLiteral("CSV (*.csv)"));
        if (!path.isEmpty())
            exportCsv(path);
    });
    auto* certificateButton = new QPushButton(QStringLiteral("Certificate…"));
    connect(certificateButton, &QPushButton::clicked, this, [this] {
        const QString path = QFileDialog::getSaveFileName(
            this, QStringLiteral("Save Certificate"), QStringLiteral("certificate.pdf"),
            QStringLiteral("PDF (*.pdf)"));
        if (!path.isEmpty())
            writeCertificate(path);
    });
    status_ = new QLabel;
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(status_, 1);
    buttons->addWidget(refreshButton);
    buttons->addWidget(exportButton);
    buttons->addWidget(certificateButton);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(filters);
    layout->addWidget(table_, 1);
    layout->addLayout(buttons);
    refresh();
}

RecordsWindow::~RecordsWindow() {
    table_->setModel(nullptr);
}

RecordsWindow* RecordsWindow::showShared() {
    static QPointer<RecordsWindow> window;
    if (!window) {
        window = new RecordsWindow(records::RecordStore::defaultPath());
        window->setAttribute(Qt::WA_DeleteOnClose);
    } else {
        window->refresh();
    }
    window->show();
    window->raise();
    window->activateWindow();
    return window;
}

QString RecordsWindow::status() const { return status_->text(); }

void RecordsWindow::showStatus(const QString& text) { status_->setText(text); }

void RecordsWindow::refresh() {
    const QVariant outcome = outcome_->currentData();
    const QString error = model_->load(
        from_->date(), to_->date(),
        outcome.isValid() ? records::outcomeFromName(outcome.toString()) : std::nullopt,
        search_->text());
    table_->resizeColumnsToContents();
    showStatus(error.isEmpty() ? QStringLiteral("%1 records").arg(model_->shown().size()) : error);
}

bool RecordsWindow::exportCsv(const QString& path) {
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) ||
        file.write(records::recordsCsv(model_->shown()).toUtf8()) < 0 || !file.commit()) {
        showStatus(QStringLiteral("Could not write %1").arg(path));
        return false;
    }
    showStatus(QStringLiteral("Exported %1 records to %2").arg(model_->shown().size()).arg(path));
    return true;
}

bool RecordsWindow::writeCertificate(const QString& path) {
    QList<records::RestoreRecord> selected;
    for (const QModelIndex& row : table_->selectionModel()->selectedRows())
        selected.append(model_->shown().at(row.row()));
    if (const QString refusal = records::Certificate::refusal(selected); !refusal.isEmpty()) {
        showStatus(QStringLiteral("No certificate: %1").arg(refusal));
        return false;
    }
    QString error;
    if (!records::Certificate(selected).writePdf(path, &error)) {
        showStatus(error);
        return false;
    }
    showStatus(QStringLiteral("Wrote a certificate for %1 Macs to %2").arg(selected.size()).arg(path));
    return true;
}

}  // namespace views
