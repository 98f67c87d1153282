#include "views/DevicePanel.h"

#include "views/BenchMapView.h"
#include "views/BenchTileButton.h"

#include "app/BenchMap.h"
#include "app/DeviceListModel.h"
#include "app/DeviceTableController.h"
#include "app/DfuPortLookup.h"
#include "app/HistoryModel.h"
#include "restore/RestoreSession.h"

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QKeySequence>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QPainter>
#include <QPixmap>
#include <QPushButton>
#include <QSaveFile>
#include <QSortFilterProxyModel>
#include <QSplitter>
#include <QStackedWidget>
#include <QStyle>
#include <QStyledItemDelegate>
#include <QTableView>
#include <QVBoxLayout>

namespace views {
namespace {

// The restore status with a bar behind it while a restore reports progress.
class StatusDelegate final : public QStyledItemDelegate {
  public:
    using QStyledItemDelegate::QStyledItemDelegate;
    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override {
        const double progress = index.data(app::DeviceListModel::ProgressRole).toDouble();
        if (progress < 0 || progress >= 1) {
            QStyledItemDelegate::paint(painter, option, index);
            return;
        }
        QStyleOptionProgressBar bar;
        bar.rect = option.rect.adjusted(2, 3, -2, -3);
        bar.minimum = 0;
        bar.maximum = 1000;
        bar.progress = static_cast<int>(progress * 1000);
        // One line, however narrow the column: a long step ("Preparing image for restore")
        // would wrap and be clipped to nonsense.
        const QString text =
            QStringLiteral("%1%  %2").arg(qRound(progress * 100)).arg(index.data().toString());
        bar.text = option.fontMetrics.elidedText(text, Qt::ElideRight, bar.rect.width() - 8);
        bar.textVisible = true;
        bar.state = option.state | QStyle::State_Horizontal;
        QApplication::style()->drawControl(QStyle::CE_ProgressBar, &bar, painter);
    }
};

// A small clock face, since not every desktop font has a clock symbol.
QLabel* clockSymbol() {
    QPixmap face(16, 16);
    face.fill(Qt::transparent);
    QPainter painter(&face);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(QApplication::palette().color(QPalette::WindowText), 1.5));
    painter.drawEllipse(QRectF(1.5, 1.5, 13, 13));
    painter.drawLine(QPointF(8, 8), QPointF(8, 4));
    painter.drawLine(QPointF(8, 8), QPointF(11, 9.5));
    painter.end();
    auto* label = new QLabel;
    label->setPixmap(face);
    return label;
}

QLabel* badge(const QString& text) {
    auto* label = new QLabel(text);
    label->setStyleSheet(QStringLiteral(
        "QLabel { background: #2e7d32; color: white; border-radius: 9px; padding: 2px 8px; }"));
    return label;
}

}  // namespace

DevicePanel::DevicePanel(app::DeviceTableController& controller, app::DeviceListModel& devices,
                         restore::RestoreSession& session, app::HistoryModel& history,
                         const app::DfuPortLookup& dfuPorts, app::BenchMap& benchMap,
                         QWidget* parent)
    : QWidget(parent),
      controller_(controller),
      devices_(devices),
      session_(session),
      history_(history),
      dfuPorts_(dfuPorts),
      benchMap_(benchMap) {
    splitter_ = new QSplitter(Qt::Vertical);
    splitter_->addWidget(buildBenchArea());
    splitter_->addWidget(buildHistory());
    splitter_->setStretchFactor(0, 1);
    splitter_->setStretchFactor(1, 0);
    splitter_->setChildrenCollapsible(false);
    // The history starts with room for four records; the rest goes to the bench.
    splitter_->setSizes({600, 4 * (fontMetrics().height() + 8) + 12});

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(buildControls());
    notice_ = new QLabel;
    notice_->setVisible(false);
    notice_->setWordWrap(true);
    layout->addWidget(notice_);
    layout->addWidget(splitter_, 1);
    bindSession();
    updateButtons();
    // Keyboard selection works as soon as the window has the focus.
    setFocusProxy(table_);
}

QWidget* DevicePanel::buildControls() {
    auto* bar = new QWidget;
    auto* row = new QHBoxLayout(bar);
    row->setContentsMargins(0, 0, 0, 0);
    restoreButton_ = new QPushButton(QStringLiteral("Restore"));
    restoreButton_->setToolTip(QStringLiteral("Restore the selected devices, which must all be in "
                                              "DFU mode, one start after another"));
    cancelButton_ = new QPushButton(QStringLiteral("Cancel"));
    cancelButton_->setToolTip(QStringLiteral("Stop the restores under way; devices not started "
                                             "yet are not started"));
    restoreButton_->setShortcut(QKeySequence(QStringLiteral("Ctrl+R")));
    cancelButton_->setShortcut(QKeySequence(QStringLiteral("Ctrl+.")));
    refreshButton_ = new QPushButton(QStringLiteral("Refresh"));
    refreshButton_->setShortcut(QKeySequence::Refresh);
    refreshButton_->setToolTip(QStringLiteral("List the devices Apple Configurator sees now"));
    removeCache_ = new QCheckBox(QStringLiteral("Remove Apple Configurator's cache first"));
    removeCache_->setToolTip(QStringLiteral("Remove Apple Configurator's temporary files before "
                                            "each restore"));
    removeCache_->setChecked(session_.shouldRemoveCache());
    restoreTime_ = new QLabel(session_.restoreTimeText());
    freeSpace_ = new QLabel(session_.freeSpaceText());
    freeSpace_->setToolTip(QStringLiteral("Measured on %1").arg(session_.freeSpaceVolume()));
    restored_ = badge(QStringLiteral("Restored: 0"));

    row->addWidget(restoreButton_);
    row->addWidget(cancelButton_);
    row->addWidget(refreshButton_);
    row->addSpacing(12);
    row->addWidget(removeCache_);
    row->addStretch(1);
    row->addWidget(clockSymbol());
    row->addWidget(restoreTime_);
    row->addSpacing(12);
    row->addWidget(freeSpace_);
    row->addSpacing(12);
    row->addWidget(restored_);

    connect(restoreButton_, &QPushButton::clicked, this,
            [this] { controller_.restore(selectedRows()); });
    connect(cancelButton_, &QPushButton::clicked, this, [this] { controller_.cancel(); });
    connect(refreshButton_, &QPushButton::clicked, &controller_,
            &app::DeviceTableController::refreshListing);
    connect(removeCache_, &QCheckBox::toggled, this,
            [this](bool on) { session_.setShouldRemoveCache(on); });
    return bar;
}

QWidget* DevicePanel::buildTable() {
    sorted_ = new QSortFilterProxyModel(this);
    sorted_->setSourceModel(&devices_);
    sorted_->setSortRole(app::DeviceListModel::SortRole);
    table_ = new QTableView;
    table_->setModel(sorted_);
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    table_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    table_->setSortingEnabled(true);
    table_->sortByColumn(app::DeviceListModel::Location, Qt::AscendingOrder);
    table_->verticalHeader()->hide();
    table_->setAlternatingRowColors(true);
    // Columns fit their contents when Macs come, not at every change: measuring every cell at each
    // progress report stalls the window on a bench of 35 restoring Macs.
    table_->horizontalHeader()->setSectionResizeMode(QHeaderView::Interactive);
    const auto fitColumns = [this] {
        QMetaObject::invokeMethod(table_, &QTableView::resizeColumnsToContents,
                                  Qt::QueuedConnection);
    };
    connect(&devices_, &QAbstractItemModel::rowsInserted, table_, fitColumns);
    connect(&controller_, &app::DeviceTableController::listingFinished, table_, fitColumns);
    table_->horizontalHeader()->setStretchLastSection(true);
    table_->verticalHeader()->setDefaultSectionSize(table_->fontMetrics().height() + 8);
    table_->setItemDelegateForColumn(app::DeviceListModel::Status, new StatusDelegate(table_));
    table_->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(table_, &QWidget::customContextMenuRequested, this, &DevicePanel::showContextMenu);
    connect(table_->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &DevicePanel::updateButtons);

    auto* copy = new QAction(QStringLiteral("Copy Serial Numbers"), table_);
    copy->setShortcut(QKeySequence::Copy);
    copy->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    connect(copy, &QAction::triggered, this, &DevicePanel::copySerialNumbers);
    table_->addAction(copy);
    return table_;
}

QWidget* DevicePanel::buildBenchArea() {
    benchArea_ = new QStackedWidget;
    benchArea_->addWidget(buildTable());
    benchMapView_ = new BenchMapView(benchMap_);
    benchArea_->addWidget(benchMapView_);
    connect(benchMapView_, &BenchMapView::tileClicked, this, &DevicePanel::selectFromTile);
    connect(benchMapView_, &BenchMapView::tileMenuRequested, this, &DevicePanel::showTileMenu);
    connect(table_->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            [this] { benchMapView_->setSelectedRows(selectedRows()); });
    return benchArea_;
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
    if (row < 0)
        return;
    const QModelIndex index = sorted_->mapFromSource(devices_.index(row, 0));
    const auto how = QItemSelectionModel::Rows |
                     (extend ? QItemSelectionModel::Toggle : QItemSelectionModel::ClearAndSelect);
    table_->selectionModel()->select(index, how);
    table_->selectionModel()->setCurrentIndex(index, QItemSelectionModel::NoUpdate);
    table_->scrollTo(index);
}

// The port's own menu: its sequences always (a port without a Mac may hold one that is off),
// the Mac's restore and serial number when one is there.
void DevicePanel::showTileMenu(int tileIndex, const QPoint& globalPosition) {
    const app::BenchTile tile = benchMap_.tiles().value(tileIndex);
    QMenu menu(this);
    const QString port = tile.port;
    menu.addSection(tile.isHostPort() ? QStringLiteral("This Mac's DFU Port")
                                      : QStringLiteral("Port %1").arg(port));
    menu.addAction(QStringLiteral("DFU Mode"), this,
                   [this, port] { emit portCommandRequested(port, PortCommand::DFU); });
    menu.addAction(QStringLiteral("Restart"), this,
                   [this, port] { emit portCommandRequested(port, PortCommand::Restart); });
    menu.addAction(QStringLiteral("Recovery"), this,
                   [this, port] { emit portCommandRequested(port, PortCommand::Recovery); });
    if (const auto device = devices_.deviceAt(tile.deviceRow)) {
        menu.addSeparator();
        const int row = tile.deviceRow;
        menu.addAction(QStringLiteral("Restore"), this, [this, row] { controller_.restore({row}); })
            ->setEnabled(device->inDFU() && !device->isRestoring());
        menu.addAction(QStringLiteral("Copy Serial Number"), this, [device] {
                QApplication::clipboard()->setText(device->serialNumber() + '\n');
            })->setEnabled(!device->serialNumber().isEmpty());
        addDfuPortHint(menu, device->deviceType());
    }
    if (session_.isBatchRunning()) {
        menu.addSeparator();
        menu.addAction(QStringLiteral("Cancel Restores"), this, [this] { controller_.cancel(); });
    }
    menu.exec(globalPosition);
}

void DevicePanel::addDfuPortHint(QMenu& menu, const QString& deviceType) const {
    const auto record = dfuPorts_.forDeviceType(deviceType);
    if (!record)
        return;
    menu.addSeparator();
    const QString text =
        (record->verified ? QString() : QStringLiteral("(unverified) ")) + record->dfuPort;
    menu.addAction(QStringLiteral("DFU port: %1").arg(text.left(70)))->setEnabled(false);
}

QWidget* DevicePanel::buildHistory() {
    historyTable_ = new QTableView;
    historyTable_->setModel(&history_);
    historyTable_->verticalHeader()->hide();
    historyTable_->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    historyTable_->horizontalHeader()->setStretchLastSection(true);
    historyTable_->setSelectionBehavior(QAbstractItemView::SelectRows);
    auto* box = new QWidget;
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* header = new QHBoxLayout;
    header->addWidget(new QLabel(QStringLiteral("<b>History</b>")));
    header->addStretch(1);
    auto* exportButton = new QPushButton(QStringLiteral("Export History…"));
    connect(exportButton, &QPushButton::clicked, this, &DevicePanel::exportHistory);
    header->addWidget(exportButton);
    layout->addLayout(header);
    layout->addWidget(historyTable_);
    // Never fewer than two records; dragging the splitter gives more.
    historyTable_->setMinimumHeight(historyTable_->horizontalHeader()->sizeHint().height() +
                                    2 * (historyTable_->fontMetrics().height() + 8) + 4);
    historyTable_->verticalHeader()->setDefaultSectionSize(historyTable_->fontMetrics().height() + 8);
    // The newest record is the one a technician looks for.
    connect(&history_, &QAbstractItemModel::rowsInserted, historyTable_,
            [this] { historyTable_->scrollToBottom(); });
    return box;
}

void DevicePanel::bindSession() {
    connect(&session_, &restore::RestoreSession::restoreTimeChanged, this,
            [this](const QString& text) { restoreTime_->setText(text); });
    connect(&session_, &restore::RestoreSession::freeSpaceChanged, this,
            [this](const QString& text) { freeSpace_->setText(text); });
    connect(&session_, &restore::RestoreSession::restoredDevicesChanged, this,
            [this](int count) { restored_->setText(QStringLiteral("Restored: %1").arg(count)); });
    connect(&session_, &restore::RestoreSession::batchRunningChanged, this,
            &DevicePanel::updateButtons);
    connect(&session_, &restore::RestoreSession::restoreCompleteChanged, this, [this](bool show) {
        if (show)
            showNotice(QStringLiteral("Restore Complete"), false);
    });
    connect(&session_, &restore::RestoreSession::restoreErrorChanged, this,
            [this](bool show, const QString& message) {
                if (show)
                    showNotice(message, true);
            });
}

void DevicePanel::showNotice(const QString& text, bool error) {
    notice_->setText(text);
    notice_->setStyleSheet(error ? QStringLiteral("QLabel { background: #fdecea; color: #b71c1c; "
                                                  "padding: 6px; border-radius: 4px; }")
                                 : QStringLiteral("QLabel { background: #e8f5e9; color: #1b5e20; "
                                                  "padding: 6px; border-radius: 4px; }"));
    notice_->setVisible(true);
}

void DevicePanel::updateButtons() {
    const bool running = session_.isBatchRunning();
    restoreButton_->setEnabled(!selectedRows().isEmpty());
    cancelButton_->setEnabled(running);
    if (!running)
        return;
    notice_->setVisible(false);
}

QList<int> DevicePanel::selectedRows() const {
    QList<int> rows;
    for (const QModelIndex& index : table_->selectionModel()->selectedRows())
        rows << sorted_->mapToSource(index).row();
    std::sort(rows.begin(), rows.end(), [this](int a, int b) {
        return sorted_->mapFromSource(devices_.index(a, 0)).row() <
               sorted_->mapFromSource(devices_.index(b, 0)).row();
    });
    return rows;
}

void DevicePanel::showContextMenu(const QPoint& position) {
    const QList<int> rows = selectedRows();
    QMenu menu(this);
    menu.addAction(QStringLiteral("Restore"), this, [this, rows] { controller_.restore(rows); })
        ->setEnabled(!rows.isEmpty());
    menu.addAction(QStringLiteral("Cancel Restores"), this, [this] { controller_.cancel(); })
        ->setEnabled(session_.isBatchRunning());
    menu.addSeparator();
    menu.addAction(QStringLiteral("Copy Serial Numbers"), this, &DevicePanel::copySerialNumbers)
        ->setEnabled(!rows.isEmpty());
    menu.addAction(QStringLiteral("Export Selection as CSV…"), this, &DevicePanel::exportSelection)
        ->setEnabled(!rows.isEmpty());
    if (rows.size() == 1)
        addDfuPortHint(menu, devices_.deviceAt(rows.first())->deviceType());
    menu.exec(table_->viewport()->mapToGlobal(position));
}

void DevicePanel::copySerialNumbers() {
    const QString serials = controller_.serialNumbers(selectedRows());
    if (!serials.isEmpty())
        QApplication::clipboard()->setText(serials);
}

void DevicePanel::exportSelection() {
    saveText(QStringLiteral("Export Selected Devices"), QStringLiteral("devices.csv"),
             controller_.csv(selectedRows()));
}

void DevicePanel::exportHistory() {
    saveText(QStringLiteral("Export History"), QStringLiteral("history.csv"),
             restore::historyCSV(session_.history()));
}

bool DevicePanel::saveText(const QString& title, const QString& fileName, const QString& text) {
    const QString path = QFileDialog::getSaveFileName(this, title, fileName,
                                                      QStringLiteral("CSV files (*.csv)"));
    if (path.isEmpty())
        return false;
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.write(text.toUtf8()) >= 0 && file.commit())
        return true;
    QMessageBox::warning(this, title,
                         QStringLiteral("Could not write %1: %2").arg(path, file.errorString()));
    return false;
}

}  // namespace views
