#include "views/DesktopApplication.h"

#include "views/HubWindow.h"
#include "views/MainWindow.h"
#include "views/OptionsSheet.h"
#include "views/QuitGuard.h"

#include "app/DisplaySleepAssertion.h"
#include "app/HubController.h"
#include "app/ManagerHubStation.h"
#include "app/VersionCheck.h"
#include "configurator/ZMRConfigurator2Utility.h"
#include "core/Alerts.h"
#include "core/BundleInfo.h"
#include "core/Clock.h"
#include "core/Log.h"
#include "core/RealHomeFolder.h"
#include "core/Settings.h"
#include "hubs/ZMRAcronameManager.h"
#include "usb/USBManager.h"

#include <QApplication>
#include <QDateTime>
#include <QDesktopServices>
#include <QMessageBox>
#include <QUrl>
#include <QWindow>

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
      optionsModel_(optionsEnvironment()) {
    mainWindow_->setAttribute(Qt::WA_DeleteOnClose);
    quitGuard_->watch(mainWindow_);
    connect(mainWindow_, &MainWindow::hubWindowRequested, this, &DesktopApplication::showHubWindow);
    connect(mainWindow_, &MainWindow::optionsRequested, this, &DesktopApplication::showOptions);
    connect(mainWindow_, &MainWindow::quitRequested, this, &DesktopApplication::quit);
    connect(mainWindow_, &MainWindow::aboutRequested, this, &DesktopApplication::showAbout);
    connect(mainWindow_, &MainWindow::firstExposed, this, &DesktopApplication::logFirstExposure);
    connect(qApp, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState s) {
        if (s == Qt::ApplicationInactive)
            delegate_->appMovedToBackground();
    });
    connect(qApp, &QCoreApplication::aboutToQuit, this,
            [this] { delegate_->applicationWillTerminate(); });
    connect(qApp, &QApplication::focusChanged, this, [this](QWidget*, QWidget* now) {
        if (now && (now->window() == mainWindow_ || now->window() == hubWindow_))
            lastActiveWindow_ = now->window();
    });
}

DesktopApplication::~DesktopApplication() {
    delete hubWindow_;
    delete mainWindow_;
}

MainWindow* DesktopApplication::mainWindow() const {
    return mainWindow_;
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
    environment.bringToFront = [this] { bringToFront(); };
    environment.disconnectAllHubs = [this] { disconnectAllHubs(); };
    environment.startVersionCheck = [this] { startVersionCheck(); };
    return environment;
}

void DesktopApplication::start() {
    delegate_->applicationDidFinishLaunching();
    mainWindow_->show();
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
        connect(hubWindow_, &HubWindow::closed, this,
                [this] { delegate_->windowWillClose(app::AppDelegate::hubWindowIdentifier); });
    }
    hubWindow_->show();
    hubWindow_->raise();
    hubWindow_->activateWindow();
    return hubWindow_;
}

OptionsSheet* DesktopApplication::showOptions() {
    if (!optionsSheet_)
        optionsSheet_ = new OptionsSheet(optionsModel_, mainWindow_);
    optionsSheet_->show();
    optionsSheet_->raise();
    return optionsSheet_;
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

// Back to the window the technician worked in, which after a DFU request is usually the hub
// window, not necessarily the main one.
void DesktopApplication::bringToFront() {
    QWidget* window = lastActiveWindow_ ? lastActiveWindow_.data() : mainWindow_.data();
    if (!window)
        return;
    window->show();
    window->raise();
    window->activateWindow();
    if (QWindow* handle = window->windowHandle())
        handle->requestActivate();
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
