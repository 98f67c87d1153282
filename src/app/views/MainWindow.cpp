#include "views/MainWindow.h"

#include "views/RecordsWindow.h"

#include "core/AppState.h"

#include <QAction>
#include <QCloseEvent>
#include <QLabel>
#include <QMenuBar>
#include <QProgressBar>
#include <QSettings>
#include <QStatusBar>
#include <QStyle>
#include <QToolBar>
#include <QVBoxLayout>
#include <QWindow>

namespace views {
namespace {

const QString kGeometryKey = QStringLiteral("MainWindow/geometry");
constexpr int kProgressSteps = 1000;

}  // namespace

MainWindow::MainWindow(core::AppState& state, QSettings* windowState, QWidget* parent)
    : QMainWindow(parent),
      state_(state),
      windowState_(windowState),
      statusMessage_(new QLabel(this)),
      logProblem_(new QLabel(this)),
      progressLabel_(new QLabel(QStringLiteral("Restore batch:"), this)),
      progress_(new QProgressBar(this)) {
    setWindowTitle(QStringLiteral("Tarvel"));
    buildActions();
    buildMenus();
    buildToolBar();
    bindStatusLine();
    setCentralWidget(emptyDeviceArea());
    // At this size a bench of 35 Macs needs only a short scroll: at least 20 rows show.
    resize(1280, 800);
    if (windowState_)
        restoreGeometry(windowState_->value(kGeometryKey).toByteArray());
}

void MainWindow::buildActions() {
    hubsAction_ =
        new QAction(style()->standardIcon(QStyle::SP_DriveNetIcon), QStringLiteral("Hubs"), this);
    hubsAction_->setShortcut(Qt::CTRL | Qt::SHIFT | Qt::Key_H);
    hubsAction_->setToolTip(QStringLiteral("Show the hubs and their ports"));
    connect(hubsAction_, &QAction::triggered, this, &MainWindow::hubWindowRequested);

    optionsAction_ = new QAction(style()->standardIcon(QStyle::SP_FileDialogDetailedView),
                                 QStringLiteral("Options…"), this);
    optionsAction_->setShortcuts(
        {QKeySequence::Preferences, QKeySequence(Qt::CTRL | Qt::Key_Comma)});
    optionsAction_->setMenuRole(QAction::PreferencesRole);
    connect(optionsAction_, &QAction::triggered, this, &MainWindow::optionsRequested);

    quitAction_ = new QAction(QStringLiteral("Quit Tarvel"), this);
    quitAction_->setShortcut(QKeySequence::Quit);
    quitAction_->setMenuRole(QAction::QuitRole);
    connect(quitAction_, &QAction::triggered, this, &MainWindow::quitRequested);

    benchMapAction_ = new QAction(QStringLiteral("Bench Map"), this);
    benchMapAction_->setCheckable(true);
    benchMapAction_->setShortcut(Qt::CTRL | Qt::Key_B);
    benchMapAction_->setToolTip(
        QStringLiteral("Show the bench as a map of hub ports instead of the device table"));

    aboutAction_ = new QAction(QStringLiteral("About Tarvel"), this);
    aboutAction_->setMenuRole(QAction::AboutRole);
    connect(aboutAction_, &QAction::triggered, this, &MainWindow::aboutRequested);
}

void MainWindow::buildMenus() {
    QMenu* file = menuBar()->addMenu(QStringLiteral("&File"));
    file->addAction(quitAction_);
    toolsMenu_ = menuBar()->addMenu(QStringLiteral("&Tools"));
    toolsMenu_->addAction(optionsAction_);
    QMenu* view = menuBar()->addMenu(QStringLiteral("&View"));
    view->addAction(benchMapAction_);
    QMenu* window = menuBar()->addMenu(QStringLiteral("&Window"));
    window->addAction(hubsAction_);
    QAction* records = window->addAction(QStringLiteral("Records"));
    records->setShortcut(Qt::CTRL | Qt::SHIFT | Qt::Key_R);
    connect(records, &QAction::triggered, this, [] { RecordsWindow::showShared(); });
    QMenu* help = menuBar()->addMenu(QStringLiteral("&Help"));
    help->addAction(aboutAction_);
    help->addAction(QStringLiteral("Diagnostics…"), this, &MainWindow::diagnosticsRequested);
}

void MainWindow::buildToolBar() {
    QToolBar* bar = toolBar_ = addToolBar(QStringLiteral("Main"));
    bar->setObjectName(QStringLiteral("mainToolBar"));
    // Text beside the icons keeps the bar low: the height goes to the device table.
    bar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    bar->setMovable(false);
    bar->addAction(hubsAction_);
    bar->addAction(optionsAction_);
    bar->addAction(benchMapAction_);
}

void MainWindow::bindStatusLine() {
    progress_->setRange(0, kProgressSteps);
    progress_->setMaximumWidth(220);
    progress_->setFormat(QStringLiteral("%p% restored"));
    // Drawn inside a narrow bar, the words run under its chunk at low values: they go beside it.
    progress_->setTextVisible(false);
    progress_->setAccessibleName(QStringLiteral("Restore batch progress"));
    progress_->setToolTip(
        QStringLiteral("The batch as a whole: the mean progress of the restores under way"));
    progressLabel_->setBuddy(progress_);
    progress_->setVisible(state_.isRunning());
    progressLabel_->setVisible(state_.isRunning());
    statusMessage_->setText(state_.progressMessage());
    statusBar()->addWidget(statusMessage_, 1);
    logProblem_->setObjectName(QStringLiteral("logProblem"));
    logProblem_->setTextFormat(Qt::PlainText);
    logProblem_->setVisible(false);
    statusBar()->addPermanentWidget(logProblem_);
    statusBar()->addPermanentWidget(progressLabel_);
    statusBar()->addPermanentWidget(progress_);
    connect(&state_, &core::AppState::progressMessageChanged, statusMessage_, &QLabel::setText);
    connect(&state_, &core::AppState::isRunningChanged, progress_, &QWidget::setVisible);
    connect(&state_, &core::AppState::isRunningChanged, progressLabel_, &QWidget::setVisible);
    const auto showProgress = [this](double fraction) {
        progress_->setValue(static_cast<int>(fraction * kProgressSteps));
        progressLabel_->setText(QStringLiteral("Restore batch: %1").arg(progress_->text()));
    };
    connect(&state_, &core::AppState::progressBarValueChanged, progress_, showProgress);
    showProgress(state_.progressBarValue());
}

void MainWindow::showLogProblem(const QString& text) {
    logProblem_->setText(text);
    logProblem_->setVisible(true);
}

QWidget* MainWindow::emptyDeviceArea() {
    auto* area = new QWidget(this);
    area->setObjectName(QStringLiteral("deviceArea"));
    auto* hint =
        new QLabel(QStringLiteral("No devices listed yet.\nOpen the hub window "
                                  "(Window ▸ Hubs) to put the Macs on your hubs into DFU mode."),
                   area);
    hint->setAlignment(Qt::AlignCenter);
    hint->setEnabled(false);
    auto* layout = new QVBoxLayout(area);
    layout->addWidget(hint);
    return area;
}

void MainWindow::setDeviceArea(QWidget* area) {
    setCentralWidget(area);
}

void MainWindow::showEvent(QShowEvent* event) {
    QMainWindow::showEvent(event);
    if (!exposed_ && windowHandle())
        windowHandle()->installEventFilter(this);
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event) {
    if (!exposed_ && watched == windowHandle() && event->type() == QEvent::Expose &&
        windowHandle()->isExposed()) {
        exposed_ = true;
        windowHandle()->removeEventFilter(this);
        emit firstExposed();
    }
    return QMainWindow::eventFilter(watched, event);
}

void MainWindow::closeEvent(QCloseEvent* event) {
    QMainWindow::closeEvent(event);
    if (event->isAccepted() && windowState_)
        windowState_->setValue(kGeometryKey, saveGeometry());
}

}  // namespace views
