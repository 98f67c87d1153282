#include "views/DfuPortWindow.h"

#include "app/DfuPortLookup.h"

#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QTableView>
#include <QVBoxLayout>

namespace views {

DfuPortWindow::DfuPortWindow(app::DfuPortLookup& lookup, QWidget* parent)
    : QWidget(parent, Qt::Window), lookup_(lookup), search_(new QLineEdit), table_(new QTableView) {
    setWindowTitle(QStringLiteral("DFU Port Lookup"));
    search_->setPlaceholderText(QStringLiteral("Search a model, e.g. \"MacBook Air M2\" or \"Mac14,3\""));
    search_->setClearButtonEnabled(true);
    table_->setModel(&lookup_);
    table_->verticalHeader()->hide();
    table_->setWordWrap(true);
    table_->horizontalHeader()->setSectionResizeMode(app::DfuPortLookup::Port, QHeaderView::Stretch);
    table_->setColumnWidth(app::DfuPortLookup::Model, 260);
    table_->setColumnWidth(app::DfuPortLookup::Identifiers, 170);
    auto* note = new QLabel(QStringLiteral(
        "Rows marked Unverified are inferences or conflicting reports: check Apple's article "
        "\"Identify the DFU port on Mac\" or try the other ports. Hover a row for its sources."));
    note->setWordWrap(true);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(search_);
    layout->addWidget(table_, 1);
    layout->addWidget(note);
    connect(search_, &QLineEdit::textChanged, this, [this](const QString& text) {
        lookup_.setQuery(text);
        table_->resizeRowsToContents();
    });
    table_->resizeRowsToContents();
    resize(900, 560);
}

}  // namespace views
