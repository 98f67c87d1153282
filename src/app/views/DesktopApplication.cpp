#include "views/DesktopApplication.h"

#include "views/DeviceArea.h"
#include "views/DiagnosticsDialog.h"
#include "views/HubWindow.h"
#include "views/MainWindow.h"
#include "views/OptionsSheet.h"
#include "views/QuitGuard.h"
#include "views/ToolsMenu.h"
#include "views/WindowRoster.h"

#include "app/DisplaySleepAssertion.h"
#include "app/HubController.h"
#include "app/ManagerHubStation.h"
#include "app/VersionCheck.h"
#include "configurator/ZMRConfigurator2Utility.h"
#include "core/Alerts.h"
#include "core/BundleInfo.h"
#include "core/Clock.h"
#include "core/Dispatch.h"
#include "core/Log.h"
#include "core/NotificationCenter.h"
#include "core/RealHomeFolder.h"
#include "core/Settings.h"
#include "core/ZMRUnifiedLogger.h"
#include "restore/RestoreSession.h"
#include "station/ZMRAcronameManager.h"
#include "usb/USBManager.h"

#include <QApplication>
#include <QDateTime>
#include <QDesktopServices>
#include <QMessageBox>
#include <QUrl>

#include <cstdio>

namespace views {
namespace {

app::OptionsSheetModel::Environment optionsEnvironment() {
    return {&core::Settings::shared(),
            [](std::function<void(bool, const QString&)> completed) {
                ZMRConfigurator2Utility::sharedManager().clearAC2CacheWithCompletedBlock(completed);
            },
            [](const QString& folder) { QDesktopServices::openUrl(QUrl::fromLocalFile(folder)); },
            core::realHomeFolder()};
}

}  // namespace

DesktopApplication::DesktopApplication(qint64 launchedAt, QObject* parent)
    : QObject(parent),
      launchedAt_(launchedAt),
      windowState_(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("kestrune.com"),
                   QStringLiteral("TarvelWindows")),
      delegate_(std::make_unique<app::AppDelegate>(delegateEnvironment())),
      quitGuard_(std::make_unique<QuitGuard>(*delegate_)),
      mainWindow_(new MainWindow(state_, &windowState_)),
      windows_(std::make_unique<WindowRoster>(mainWindow_)),
      optionsModel_(optionsEnvironment()) {
    followMainWindow();
    connect(qApp, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState s) {
        if (s == Qt::ApplicationInactive)
            delegate_->appMovedToBackground();
    });
    connect(qApp, &QCoreApplication::aboutToQuit, this,
            [this] { delegate_->applicationWillTerminate(); });
    buildDeviceArea();
    tools_ = std::make_unique<ToolsMenu>(*mainWindow_, deviceArea_->dfuPorts(),
                                         deviceArea_->panel(), deviceArea_->firmwareCachePath());
    watchLogProblems();
}

// Closing the main window hides it (it is not deleted), so the hub window can bring it back;
// closing the last open window still quits, through the quit guard.
void DesktopApplication::followMainWindow() {
    quitGuard_->watch(mainWindow_);
    connect(mainWindow_, &MainWindow::hubWindowRequested, this, &DesktopApplication::showHubWindow);
    connect(mainWindow_, &MainWindow::optionsRequested, this, &DesktopApplication::showOptions);
    connect(mainWindow_, &MainWindow::quitRequested, this, &DesktopApplication::quit);
    connect(mainWindow_, &MainWindow::aboutRequested, this, &DesktopApplication::showAbout);
    connect(mainWindow_, &MainWindow::diagnosticsRequested, this, [this] {
        auto* dialog = new DiagnosticsDialog(mainWindow_);
        dialog->setAttribute(Qt::WA_DeleteOnClose);
        dialog->show();
    });
    connect(mainWindow_, &MainWindow::firstExposed, this, &DesktopApplication::logFirstExposure);
}

void DesktopApplication::buildDeviceArea() {
    deviceArea_ = std::make_unique<DeviceArea>(state_, windowState_, *mainWindow_);
    connect(deviceArea_.get(), &DeviceArea::hubPortCommandRequested, this,
            &DesktopApplication::runHubPortCommand);
    // While a batch runs the application refuses to quit.
    connect(&deviceArea_->session(), &restore::RestoreSession::preventTerminationChanged,
            delegate_.get(), &app::AppDelegate::setPreventTermination);
}

// The log may have failed before the window existed (the banner) or may fail at any time later.
void DesktopApplication::watchLogProblems() {
    const QString known = ZMRUnifiedLogger::sharedLogger().writeProblem();
    if (!known.isEmpty())
        mainWindow_->showLogProblem(known);
    QPointer<MainWindow> window = mainWindow_;
    logProblemObserver_ = core::NotificationCenter::defaultCenter().addObserver(
        ZMRUnifiedLogger::writeProblemNotification,
        [window](const QString&, const QVariantMap& info) {
            const QString text = info.value(QStringLiteral("message")).toString();
            dispatch::main([window, text] {
                if (window)
                    window->showLogProblem(text);
            });
        });
}

void DesktopApplication::runHubPortCommand(const QString& port, PortCommand command) {
    HubWindow* hubs = showHubWindow();
    QAction* action = command == PortCommand::DFU       ? hubs->dfuAction()
                      : command == PortCommand::Restart ? hubs->restartAction()
                                                        : hubs->recoveryAction();
    hubs->runOnPort(port, action);
}

DesktopApplication::~DesktopApplication() {
    core::NotificationCenter::defaultCenter().removeObserver(logProblemObserver_);
    tools_.reset();
    delete hubWindow_;
    delete mainWindow_;
}

app::AppDelegateEnvironment DesktopApplication::delegateEnvironment() {
    app::AppDelegateEnvironment environment;
    environment.settings = &core::Settings::shared();
    environment.clock = &core::Clock::system();
    environment.notifications = &core::NotificationCenter::defaultCenter();
    environment.alerts = &core::Alerts::shared();
    environment.bundleVersion = core::BundleInfo::shared().bundleVersion();
    environment.log = ZMRLogLevel1;
    environment.standardOutput = [](const QString& text) {
        std::fputs(qPrintable(text), stdout);
        std::fflush(stdout);
    };
    environment.takeDisplaySleepAssertion = [] { app::DisplaySleepAssertion::takeOnce(); };
    environment.bringToFront = [this] { windows_->bringToFront(); };
    environment.disconnectAllHubs = [this] { disconnectAllHubs(); };
    environment.startVersionCheck = [this] { startVersionCheck(); };
    return environment;
}

void DesktopApplication::start() {
    delegate_->applicationDidFinishLaunching();
    mainWindow_->show();
    deviceArea_->start();
}

HubWindow* DesktopApplication::showHubWindow() {
    if (!hubWindow_) {
        // The hubs are first touched here: an application used only for restores never
        // connects to them.
        hubManager_ = ZMRAcronameManager::sharedManager();
        hubController_ = std::make_unique<app::HubController>(app::HubController::Environment{
            std::make_shared<app::ManagerHubStation>(hubManager_),
            &core::NotificationCenter::defaultCenter(), dispatch::global,
            [] { USBManager::sharedManager()->startWatching(); }});
        hubWindow_ = new HubWindow(*hubController_);
        quitGuard_->watch(hubWindow_);
        windows_->watch(hubWindow_);
        connect(hubWindow_, &HubWindow::mainWindowRequested, windows_.get(),
                &WindowRoster::showMainWindow);
        // The hub window's rows know which ports are disabled; the registry cannot tell.
        connect(hubController_.get(), &app::HubController::rowsRebuilt, this,
                [this] { deviceArea_->showDisabledPorts(hubController_->disabledPorts()); });
        connect(hubWindow_, &HubWindow::closed, this,
                [this] { delegate_->windowWillClose(app::AppDelegate::hubWindowIdentifier); });
    }
    hubWindow_->show();
    hubWindow_->raise();
    hubWindow_->activateWindow();
    return hubWindow_;
}

void DesktopApplication::showOptions() {
    if (!optionsSheet_)
        optionsSheet_ = new OptionsSheet(optionsModel_, mainWindow_);
    optionsSheet_->show();
    optionsSheet_->raise();
}

void DesktopApplication::startVersionCheck() {
    if (versionCheck_)
        return;
    const core::BundleInfo& bundle = core::BundleInfo::shared();
    versionCheck_ = new app::VersionCheck(
        {&core::Settings::shared(), &core::Alerts::shared(), bundle.identifier(),
         bundle.shortVersion(), [](const QUrl& url) { QDesktopServices::openUrl(url); }},
        this);
    connect(versionCheck_, &app::VersionCheck::finished, versionCheck_, &QObject::deleteLater);
    versionCheck_->start();
}

void DesktopApplication::disconnectAllHubs() {
    if (hubManager_)
        hubManager_->disconnectAllHubs();
}

void DesktopApplication::quit() {
    if (delegate_->applicationShouldTerminate())
        QCoreApplication::quit();
}

void DesktopApplication::showAbout() {
    const core::BundleInfo& bundle = core::BundleInfo::shared();
    QMessageBox::about(
        mainWindow_, QStringLiteral("About Tarvel"),
        QStringLiteral("<b>Tarvel %1</b> (build %2)<p>Resets benches of Macs through "
                       "Acroname hubs and Apple Configurator.</p><p><a href=\"%3\">%3</a></p>")
            .arg(bundle.shortVersion(), bundle.bundleVersion(), bundle.troubleshootingGuide()));
}

void DesktopApplication::logFirstExposure() {
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    ZMRLogLevel1(QStringLiteral("Main window shown at %1, %2 ms after launch")
                     .arg(now)
                     .arg(now - launchedAt_));
}

}  // namespace views
