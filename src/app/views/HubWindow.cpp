#include "views/HubWindow.h"

#include "views/ProgressSheet.h"

#include "app/AppDelegate.h"
#include "app/HubController.h"
#include "core/HubPortName.h"

#include <QAction>
#include <QCloseEvent>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QStatusBar>
#include <QTableView>
#include <QToolBar>

#include <functional>
#include <utility>

namespace views {
namespace {

// Drawn for this window, one distinct picture per command: theme icons repeat themselves (the
// refresh and restart arrows) or mean something else where a theme lacks them.
QIcon drawn(const char* name) {
    return QIcon(QStringLiteral(":/icons/%1.svg").arg(QLatin1String(name)));
}

}  // namespace

HubWindow::HubWindow(app::HubController& controller, QWidget* parent)
    : QMainWindow(parent),
      controller_(controller),
      table_(new QTableView(this)),
      progressSheet_(new ProgressSheet(this)),
      status_(new QLabel(this)) {
    setObjectName(app::AppDelegate::hubWindowIdentifier);
    setWindowTitle(QStringLiteral("Hubs"));
    table_->setModel(controller_.model());
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    table_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    table_->verticalHeader()->hide();
    table_->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    table_->horizontalHeader()->setStretchLastSection(true);
    table_->setAlternatingRowColors(true);
    setCentralWidget(table_);
    statusBar()->addWidget(status_, 1);
    buildToolBar();
    buildMenus();
    buildContextMenu();
    bindController();
    resize(760, 420);
}

QAction* HubWindow::makeAction(const QString& label, const QIcon& icon,
                               void (app::HubController::*action)(const QSet<QUuid>&)) {
    auto* added = new QAction(icon, label, this);
    // Held as a std::function: a pointer to member captured straight into the slot's lambda is
    // read out of bounds under the address sanitizer (GCC 12 and Qt 6.4's functor slots).
    const std::function<void(app::HubController&, const QSet<QUuid>&)> run = std::mem_fn(action);
    connect(added, &QAction::triggered, this, [this, run] { run(controller_, selectedDevices()); });
    return added;
}

void HubWindow::buildToolBar() {
    dfuAction_ = makeAction(QStringLiteral("Put All in DFU"), drawn("put-in-dfu"),
                            &app::HubController::dfu);
    dfuAction_->setShortcut(Qt::CTRL | Qt::Key_D);
    restartAction_ = makeAction(QStringLiteral("Restart All"),
                                drawn("restart-all"),
                                &app::HubController::restart);
    restartAction_->setShortcut(Qt::CTRL | Qt::Key_R);
    recoveryAction_ = makeAction(QStringLiteral("Put All Recovery"),
                                 drawn("recovery"),
                                 &app::HubController::recovery);
    recoveryAction_->setShortcut(Qt::CTRL | Qt::SHIFT | Qt::Key_R);
    rebootHubAction_ = makeAction(QStringLiteral("Reboot Hub"),
                                  drawn("reboot-hub"),
                                  &app::HubController::rebootHub);
    toggleLEDAction_ = makeAction(QStringLiteral("Toggle Hub LED"),
                                  drawn("hub-led"),
                                  &app::HubController::toggleLED);
    refreshAction_ = new QAction(drawn("refresh"),
                                 QStringLiteral("Refresh"), this);
    refreshAction_->setShortcut(QKeySequence::Refresh);
    connect(refreshAction_, &QAction::triggered, &controller_, &app::HubController::refresh);

    QToolBar* bar = addToolBar(QStringLiteral("Hub actions"));
    bar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    bar->setMovable(false);
    bar->addActions({dfuAction_, restartAction_, recoveryAction_});
    bar->addSeparator();
    bar->addActions({refreshAction_, rebootHubAction_, toggleLEDAction_});
}

void HubWindow::buildMenus() {
    QMenu* hubs = menuBar()->addMenu(QStringLiteral("&Hubs"));
    hubs->addActions({dfuAction_, restartAction_, recoveryAction_});
    hubs->addSeparator();
    hubs->addActions({refreshAction_, rebootHubAction_, toggleLEDAction_});
    mainWindowAction_ = new QAction(QStringLiteral("Main Window"), this);
    mainWindowAction_->setShortcut(Qt::CTRL | Qt::Key_0);
    connect(mainWindowAction_, &QAction::triggered, this, &HubWindow::mainWindowRequested);
    menuBar()->addMenu(QStringLiteral("&Window"))->addAction(mainWindowAction_);
}

// The rows' own menu names the sequences for what they do to the rows clicked on.
void HubWindow::buildContextMenu() {
    auto* menu = new QMenu(this);
    menu->addAction(QStringLiteral("DFU Mode"), dfuAction_, &QAction::trigger);
    menu->addAction(drawn("restart-all"), QStringLiteral("Restart"),
                    restartAction_, &QAction::trigger);
    menu->addAction(QStringLiteral("Recovery"), recoveryAction_, &QAction::trigger);
    table_->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(table_, &QWidget::customContextMenuRequested, this, [this, menu](const QPoint& at) {
        if (!selectedDevices().isEmpty())
            menu->popup(table_->viewport()->mapToGlobal(at));
    });
}

void HubWindow::bindController() {
    connect(&controller_, &app::HubController::updateMessageChanged, progressSheet_,
            &ProgressSheet::setMessage);
    connect(&controller_, &app::HubController::activityChanged, progressSheet_, [this] {
        progressSheet_->setActivity(controller_.activityText(), controller_.portsDone(),
                                    controller_.portsCount());
    });
    connect(&controller_, &app::HubController::showModalChanged, this, [this](bool shown) {
        progressSheet_->setMessage(controller_.updateMessage());
        progressSheet_->setVisible(shown);
        updateActions();
    });
    connect(&controller_, &app::HubController::isRefreshingChanged, this, [this] {
        updateActions();
        updateStatus();
    });
    connect(&controller_, &app::HubController::rowsRebuilt, this, &HubWindow::updateStatus);
    connect(&controller_, &app::HubController::rowsRebuilt, this,
            &HubWindow::runPendingPortAction);
    connect(table_->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &HubWindow::updateActions);
    connect(controller_.model(), &QAbstractItemModel::modelReset, this, &HubWindow::updateActions);
    updateActions();
    updateStatus();
}

void HubWindow::updateActions() {
    const bool selected = !selectedDevices().isEmpty();
    const bool idle = !controller_.showModal();
    for (QAction* action :
         {dfuAction_, restartAction_, recoveryAction_, rebootHubAction_, toggleLEDAction_})
        action->setEnabled(selected && idle);
    refreshAction_->setEnabled(idle && !controller_.isRefreshing());
}

void HubWindow::updateStatus() {
    status_->setText(controller_.isRefreshing()
                         ? QStringLiteral("Refreshing…")
                         : QStringLiteral("device count: %1").arg(controller_.hubDevices().size()));
}

void HubWindow::runOnPort(const QString& port, QAction* action) {
    pendingPort_ = port;
    pendingAction_ = action;
    if (!controller_.isRefreshing() && !controller_.hubDevices().isEmpty())
        runPendingPortAction();
}

void HubWindow::runPendingPortAction() {
    if (!pendingAction_)
        return;
    const auto& rows = controller_.hubDevices();
    for (qsizetype row = 0; row < rows.size(); ++row) {
        const QString name = core::hubPortName(rows[row].hubSerialNumber, rows[row].portID);
        if (name != pendingPort_)
            continue;
        table_->selectRow(static_cast<int>(row));
        std::exchange(pendingAction_, nullptr)->trigger();
        return;
    }
    pendingAction_ = nullptr;
}

QSet<QUuid> HubWindow::selectedDevices() const {
    QSet<QUuid> selected;
    const auto& rows = controller_.hubDevices();
    for (const QModelIndex& index : table_->selectionModel()->selectedRows())
        if (index.row() < rows.size())
            selected.insert(rows[index.row()].id);
    return selected;
}

void HubWindow::showEvent(QShowEvent* event) {
    QMainWindow::showEvent(event);
    if (!event->spontaneous())
        controller_.viewShown();
}

void HubWindow::closeEvent(QCloseEvent* event) {
    QMainWindow::closeEvent(event);
    if (event->isAccepted())
        emit closed();
}

}  // namespace views
