#include "views/HistoryPane.h"

#include "app/HistoryModel.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTableView>
#include <QVBoxLayout>

namespace views {

HistoryPane::HistoryPane(app::HistoryModel& history, QWidget* parent)
    : QWidget(parent), table_(new QTableView) {
    table_->setModel(&history);
    table_->verticalHeader()->hide();
    table_->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    table_->horizontalHeader()->setStretchLastSection(true);
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* header = new QHBoxLayout;
    header->addWidget(new QLabel(QStringLiteral("<b>History</b>")));
    header->addStretch(1);
    auto* exportButton = new QPushButton(QStringLiteral("Export History…"));
    connect(exportButton, &QPushButton::clicked, this, &HistoryPane::exportRequested);
    header->addWidget(exportButton);
    layout->addLayout(header);
    layout->addWidget(table_);
    // Never fewer than two records; dragging the splitter gives more.
    table_->setMinimumHeight(table_->horizontalHeader()->sizeHint().height() +
                             2 * (table_->fontMetrics().height() + 8) + 4);
    table_->verticalHeader()->setDefaultSectionSize(table_->fontMetrics().height() + 8);
    // The newest record is the one a technician looks for.
    connect(&history, &QAbstractItemModel::rowsInserted, table_,
            [this] { table_->scrollToBottom(); });
}

}  // namespace views
