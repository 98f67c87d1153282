#include "views/DevicePanel.h"

#include "views/BenchMapView.h"
#include "views/BenchTileButton.h"
#include "views/CsvSaving.h"
#include "views/DeviceMenus.h"
#include "views/DeviceTableView.h"
#include "views/HistoryPane.h"
#include "views/RestoreControls.h"
#include "views/RestoreNotice.h"

#include "app/BenchMap.h"
#include "app/DeviceTableController.h"
#include "restore/RestoreSession.h"

#include <QApplication>
#include <QClipboard>
#include <QItemSelectionModel>
#include <QSplitter>
#include <QStackedWidget>
#include <QVBoxLayout>

namespace views {

DevicePanel::DevicePanel(app::DeviceTableController& controller, app::DeviceListModel& devices,
                         restore::RestoreSession& session, app::HistoryModel& history,
                         const app::DfuPortLookup& dfuPorts, app::BenchMap& benchMap,
                         QWidget* parent)
    : QWidget(parent),
      controller_(controller),
      session_(session),
      benchMap_(benchMap),
      controls_(new RestoreControls(controller, session)),
      notice_(new RestoreNotice(session)),
      table_(new DeviceTableView(devices, controller)),
      benchMapView_(new BenchMapView(benchMap)),
      history_(new HistoryPane(history)),
      menus_(new DeviceMenus(controller, devices, session, dfuPorts, *this)) {
    connect(table_->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &DevicePanel::updateButtons);
    splitter_ = new QSplitter(Qt::Vertical);
    splitter_->addWidget(buildBenchArea());
    splitter_->addWidget(history_);
    splitter_->setStretchFactor(0, 1);
    splitter_->setStretchFactor(1, 0);
    splitter_->setChildrenCollapsible(false);
    // The history starts with room for four records; the rest goes to the bench.
    splitter_->setSizes({600, 4 * (fontMetrics().height() + 8) + 12});

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(controls_);
    layout->addWidget(notice_);
    layout->addWidget(splitter_, 1);
    bindMenus();
    connect(controls_, &RestoreControls::restoreRequested, this,
            [this] { controller_.restore(selectedRows()); });
    connect(&session_, &restore::RestoreSession::batchRunningChanged, this,
            &DevicePanel::updateButtons);
    connect(history_, &HistoryPane::exportRequested, this, &DevicePanel::exportHistory);
    updateButtons();
    // Keyboard selection works as soon as the window has the focus.
    setFocusProxy(table_);
}

QWidget* DevicePanel::buildBenchArea() {
    benchArea_ = new QStackedWidget;
    benchArea_->addWidget(table_);
    benchArea_->addWidget(benchMapView_);
    connect(benchMapView_, &BenchMapView::tileClicked, this, &DevicePanel::selectFromTile);
    connect(table_->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            [this] { benchMapView_->setSelectedRows(selectedRows()); });
    return benchArea_;
}

void DevicePanel::bindMenus() {
    connect(table_, &QWidget::customContextMenuRequested, this, [this](const QPoint& position) {
        menus_->showForRows(selectedRows(), table_->viewport()->mapToGlobal(position));
    });
    connect(benchMapView_, &BenchMapView::tileMenuRequested, this,
            [this](int tile, const QPoint& globalPosition) {
                menus_->showForTile(benchMap_.tiles().value(tile), globalPosition);
            });
    connect(table_, &DeviceTableView::copyRequested, this, &DevicePanel::copySerialNumbers);
    connect(menus_, &DeviceMenus::copySerialNumbersRequested, this,
            &DevicePanel::copySerialNumbers);
    connect(menus_, &DeviceMenus::exportSelectionRequested, this, &DevicePanel::exportSelection);
    connect(menus_, &DeviceMenus::portCommandRequested, this, &DevicePanel::portCommandRequested);
}

QTableView* DevicePanel::table() const {
    return table_;
}

QTableView* DevicePanel::historyTable() const {
    return history_->table();
}

QPushButton* DevicePanel::restoreButton() const {
    return controls_->restoreButton();
}

QPushButton* DevicePanel::cancelButton() const {
    return controls_->cancelButton();
}

QLabel* DevicePanel::notice() const {
    return notice_;
}

void DevicePanel::showBenchMap(bool shown) {
    const bool hadFocus = benchArea_->currentWidget()->hasFocus() ||
                          benchArea_->currentWidget()->isAncestorOf(focusWidget());
    benchArea_->setCurrentIndex(shown ? 1 : 0);
    QWidget* focus = table_;
    if (shown)
        focus = benchMapView_->tiles().isEmpty() ? static_cast<QWidget*>(benchMapView_)
                                                 : benchMapView_->tiles().first();
    setFocusProxy(focus);
    if (hadFocus)
        focus->setFocus();
}

void DevicePanel::selectFromTile(int tile, bool extend) {
    const int row = benchMap_.tiles().value(tile).deviceRow;
    if (row >= 0)
        table_->selectDevice(row, extend);
}

// A batch under way hides how the last one ended.
void DevicePanel::updateButtons() {
    controls_->updateButtons(!selectedRows().isEmpty());
    if (session_.isBatchRunning())
        notice_->setVisible(false);
}

QList<int> DevicePanel::selectedRows() const {
    return table_->selectedRows();
}

void DevicePanel::copySerialNumbers() {
    const QString serials = controller_.serialNumbers(selectedRows());
    if (!serials.isEmpty())
        QApplication::clipboard()->setText(serials);
}

void DevicePanel::exportSelection() {
    saveCsvAs(this, QStringLiteral("Export Selected Devices"), QStringLiteral("devices.csv"),
              controller_.csv(selectedRows()));
}

void DevicePanel::exportHistory() {
    saveCsvAs(this, QStringLiteral("Export History"), QStringLiteral("history.csv"),
              restore::historyCSV(session_.history()));
}

}  // namespace views
