#include "views/DeviceTableView.h"

#include "views/RestoreStatusDelegate.h"

#include "app/DeviceListModel.h"
#include "app/DeviceTableController.h"

#include <QAction>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QKeySequence>
#include <QSortFilterProxyModel>

#include <algorithm>

namespace views {

DeviceTableView::DeviceTableView(app::DeviceListModel& devices,
                                 app::DeviceTableController& controller, QWidget* parent)
    : QTableView(parent), devices_(devices), sorted_(new QSortFilterProxyModel(this)) {
    sorted_->setSourceModel(&devices_);
    sorted_->setSortRole(app::DeviceListModel::SortRole);
    setModel(sorted_);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setSortingEnabled(true);
    sortByColumn(app::DeviceListModel::Location, Qt::AscendingOrder);
    verticalHeader()->hide();
    setAlternatingRowColors(true);
    fitColumnsWhenMacsCome(controller);
    horizontalHeader()->setStretchLastSection(true);
    verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 8);
    setItemDelegateForColumn(app::DeviceListModel::Status, new RestoreStatusDelegate(this));
    setContextMenuPolicy(Qt::CustomContextMenu);

    auto* copy = new QAction(QStringLiteral("Copy Serial Numbers"), this);
    copy->setShortcut(QKeySequence::Copy);
    copy->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    connect(copy, &QAction::triggered, this, &DeviceTableView::copyRequested);
    addAction(copy);
}

// Columns fit their contents when Macs come, not at every change: measuring every cell at each
// progress report stalls the window on a bench of 35 restoring Macs.
void DeviceTableView::fitColumnsWhenMacsCome(app::DeviceTableController& controller) {
    horizontalHeader()->setSectionResizeMode(QHeaderView::Interactive);
    const auto fitColumns = [this] {
        QMetaObject::invokeMethod(this, &QTableView::resizeColumnsToContents, Qt::QueuedConnection);
    };
    connect(&devices_, &QAbstractItemModel::rowsInserted, this, fitColumns);
    connect(&controller, &app::DeviceTableController::listingFinished, this, fitColumns);
}

QList<int> DeviceTableView::selectedRows() const {
    QList<int> rows;
    for (const QModelIndex& index : selectionModel()->selectedRows())
        rows << sorted_->mapToSource(index).row();
    std::sort(rows.begin(), rows.end(), [this](int a, int b) {
        return sorted_->mapFromSource(devices_.index(a, 0)).row() <
               sorted_->mapFromSource(devices_.index(b, 0)).row();
    });
    return rows;
}

void DeviceTableView::selectDevice(int row, bool extend) {
    const QModelIndex index = sorted_->mapFromSource(devices_.index(row, 0));
    const auto how = QItemSelectionModel::Rows |
                     (extend ? QItemSelectionModel::Toggle : QItemSelectionModel::ClearAndSelect);
    selectionModel()->select(index, how);
    selectionModel()->setCurrentIndex(index, QItemSelectionModel::NoUpdate);
    scrollTo(index);
}

}  // namespace views
