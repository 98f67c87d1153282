#include "views/DesktopApplication.h"

#include "usb/UsbRegistry.h"

#include "views/CollapsibleSection.h"
#include "views/DevicePanel.h"
#include "views/DiagnosticsDialog.h"
#include "views/DfuPortWindow.h"
#include "views/HubWindow.h"
#include "views/LocalDFUGroupView.h"
#include "views/UnattendedBenchGroupView.h"
#include "unattended/BenchController.h"
#include "views/MainWindow.h"
#include "views/OptionsSheet.h"
#include "views/QuitGuard.h"
#include "views/WindowRoster.h"

#include "app/BenchMap.h"
#include "app/DeviceListModel.h"
#include "app/DeviceTableController.h"
#include "app/DfuPortLookup.h"
#include "app/DisplaySleepAssertion.h"
#include "app/HistoryModel.h"
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
#include "hubs/AcronamePort.h"
#include "hubs/ZMRAcronameManager.h"
#include "localport/FirmwareUpdater.h"
#include "restore/LocalPortAutoRestore.h"
#include "restore/RestoreSession.h"
#include "usb/AutoDFU.h"
#include "usb/USBManager.h"

#include <QApplication>
#include <QDateTime>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QKeySequence>
#include <QMenu>
#include <QSplitter>
#include <QToolBar>
#include <QVBoxLayout>
#include <QMessageBox>
#include <QUrl>
#include <QWindow>

#include <cstdio>

namespace views {
namespace {

const QString kLocalPortExpandedKey = QStringLiteral("MainWindow/localPortExpanded");
const QString kDeviceSplitterKey = QStringLiteral("MainWindow/deviceSplitter");
const QString kBenchMapShownKey = QStringLiteral("MainWindow/benchMapShown");
// USB arrivals come in bursts; the hubs' ports are read once the burst is over.
constexpr int kHubPortsDelayMs = 300;

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
    // Closing the main window hides it (it is not deleted), so the hub window can bring it back;
    // closing the last open window still quits, through the quit guard.
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
    connect(qApp, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState s) {
        if (s == Qt::ApplicationInactive)
            delegate_->appMovedToBackground();
    });
    connect(qApp, &QCoreApplication::aboutToQuit, this,
            [this] { delegate_->applicationWillTerminate(); });
    buildDeviceArea();
    buildTools();
    watchLogProblems();
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

// Asked for each painted cell, so the registry is read at most once a second.
QString DesktopApplication::hubPortOf(const AC2Device& device) {
    if (!hubPortNames_ || !hubPortNamesAge_.isValid() || hubPortNamesAge_.hasExpired(1000)) {
        hubPortNamesAge_.start();
        if (const auto devices = usb::UsbRegistry::shared().devices())
            hubPortNames_.emplace(*devices);
    }
    return hubPortNames_ ? hubPortNames_->nameOf(std::uint64_t(device.locationID())) : QString();
}

void DesktopApplication::buildDeviceArea() {
    restore::RestoreSession::Collaborators restoreEnvironment =
        restore::RestoreSession::defaultCollaborators(&state_);
    firmwareCachePath_ = restoreEnvironment.firmwareCachePath;
    session_ = std::make_unique<restore::RestoreSession>(restoreEnvironment);
    const auto hubPort = [this](const AC2Device& device) { return hubPortOf(device); };
    devices_ = std::make_unique<app::DeviceListModel>(app::DeviceListModel::Collaborators{
        &core::Settings::shared(), restoreEnvironment.events, &core::Clock::system(), hubPort});
    benchController_ = std::make_unique<unattended::BenchController>(*session_);
    devices_->showPortPhases(benchController_->model());
    history_ = std::make_unique<app::HistoryModel>(*session_);
    dfuPorts_ = std::make_unique<app::DfuPortLookup>();
    deviceTable_ = std::make_unique<app::DeviceTableController>(app::DeviceTableController::Environment{
        &core::Settings::shared(), restoreEnvironment.configurator, session_.get(), devices_.get(),
        &state_, &core::NotificationCenter::defaultCenter()});
    benchMap_ = std::make_unique<app::BenchMap>(*devices_, AutoDFU::dfuPortAddress);
    benchMap_->showPortPhases(benchController_->model());
    devicePanel_ =
        new DevicePanel(*deviceTable_, *devices_, *session_, *history_, *dfuPorts_, *benchMap_);
    connect(devicePanel_, &DevicePanel::portCommandRequested, this,
            &DesktopApplication::runPortCommand);
    auto* area = new QWidget;
    auto* layout = new QVBoxLayout(area);
    layout->addWidget(devicePanel_, 1);
    layout->addWidget(buildLocalPortSection());
    layout->addWidget(new UnattendedBenchGroupView(*benchController_));
    mainWindow_->setDeviceArea(area);
    rememberSplitter(devicePanel_->splitter());
    rememberBenchMapChoice();
    followHubPorts();

    // While a batch runs the application refuses to quit, and the status line shows its bar.
    connect(session_.get(), &restore::RestoreSession::preventTerminationChanged, delegate_.get(),
            &app::AppDelegate::setPreventTermination);
    connect(session_.get(), &restore::RestoreSession::batchRunningChanged, &state_,
            &app::AppState::setIsRunning);
}

// Folded or not, as the technician left it: on a bench of hubs it is rarely used.
QWidget* DesktopApplication::buildLocalPortSection() {
    auto* section =
        new CollapsibleSection(QStringLiteral("This Mac's DFU Port"), buildLocalPortGroup());
    section->setExpanded(windowState_.value(kLocalPortExpandedKey, false).toBool());
    connect(section, &CollapsibleSection::expandedChanged, this,
            [this](bool expanded) { windowState_.setValue(kLocalPortExpandedKey, expanded); });
    return section;
}

void DesktopApplication::rememberSplitter(QSplitter* splitter) {
    splitter->restoreState(windowState_.value(kDeviceSplitterKey).toByteArray());
    connect(splitter, &QSplitter::splitterMoved, this, [this, splitter] {
        windowState_.setValue(kDeviceSplitterKey, splitter->saveState());
    });
}

void DesktopApplication::rememberBenchMapChoice() {
    QAction* toggle = mainWindow_->benchMapAction();
    toggle->setChecked(windowState_.value(kBenchMapShownKey, false).toBool());
    devicePanel_->showBenchMap(toggle->isChecked());
    connect(toggle, &QAction::toggled, this, [this](bool shown) {
        windowState_.setValue(kBenchMapShownKey, shown);
        devicePanel_->showBenchMap(shown);
    });
}

// The bench map has a tile for every usable port of the hubs on the bus, whether or not the hub
// window ever connected to them; it follows hubs plugged in and pulled out.
void DesktopApplication::followHubPorts() {
    hubPortsDelay_.setSingleShot(true);
    hubPortsDelay_.setInterval(kHubPortsDelayMs);
    connect(&hubPortsDelay_, &QTimer::timeout, this, &DesktopApplication::readHubPorts);
    core::NotificationCenter& center = core::NotificationCenter::defaultCenter();
    for (const QString& name :
         {USBManager::deviceAddedNotification, USBManager::deviceRemovedNotification})
        hubPortObservers_.push_back(center.addObserver(name, [this](const QString&, const QVariantMap&) {
            QMetaObject::invokeMethod(&hubPortsDelay_, qOverload<>(&QTimer::start));
        }));
    readHubPorts();
}

void DesktopApplication::readHubPorts() {
    hubPortNamesAge_.start();
    if (const auto devices = usb::UsbRegistry::shared().devices())
        hubPortNames_.emplace(*devices);
    if (hubPortNames_)
        benchMap_->setHubPorts(hubPortNames_->names());
}

// The hub window's rows know which ports are disabled; the registry cannot tell.
void DesktopApplication::showDisabledPorts() {
    QSet<QString> disabled;
    for (const app::HubDevice& row : hubController_->hubDevices())
        if (row.acronamePort && !row.acronamePort->isEnabled())
            disabled.insert(QStringLiteral("%1:%2")
                                .arg(QString::number(row.hubSerialNumber, 16).toUpper())
                                .arg(row.portID));
    benchMap_->setDisabledPorts(disabled);
}

void DesktopApplication::runPortCommand(const QString& port, PortCommand command) {
    if (port.isEmpty()) {
        switch (command) {
            case PortCommand::DFU: firmwareUpdater_->gogoDFUMode(); break;
            case PortCommand::Restart: firmwareUpdater_->restart(); break;
            case PortCommand::Recovery: firmwareUpdater_->recovery(); break;
        }
        return;
    }
    HubWindow* hubs = showHubWindow();
    QAction* action = command == PortCommand::DFU       ? hubs->dfuAction()
                      : command == PortCommand::Restart ? hubs->restartAction()
                                                        : hubs->recoveryAction();
    hubs->runOnPort(port, action);
}

// The host's own DFU port: its actions, and the automatic cycle handing Macs to the same restore
// session as the table, so they show in its history.
QWidget* DesktopApplication::buildLocalPortGroup() {
    firmwareUpdater_ =
        std::make_unique<FirmwareUpdater>(FirmwareUpdater::defaultCollaborators(&state_));
    localAutoRestore_ = std::make_unique<restore::LocalPortAutoRestore>(
        restore::LocalPortAutoRestore::Collaborators{
            &AutoDFU::shared(), session_.get(), &state_,
            restore::LocalPortAutoRestore::configuratorListing(),
            restore::LocalPortAutoRestore::registryPortDevice()});
    connect(localAutoRestore_.get(), &restore::LocalPortAutoRestore::deviceRestored, this,
            [this](const restore::DevicePtr& device) {
                firmwareUpdater_->appendRestoredDevice(
                    QStringLiteral("%1  %2").arg(formatEcid(device->ecid()), device->serialNumber()));
            });
    return new LocalDFUGroupView(*firmwareUpdater_);
}

void DesktopApplication::buildTools() {
    QMenu* tools = mainWindow_->toolsMenu();
    tools->addSeparator();
    QAction* lookup = tools->addAction(QStringLiteral("DFU Port Lookup"), this,
                                       &DesktopApplication::showDfuPortLookup);
    lookup->setShortcut(QKeySequence(QStringLiteral("Ctrl+L")));
    mainWindow_->toolBar()->addAction(lookup);
    const auto openFolder = [this, tools](const QString& title, const QString& path) {
        // A place this machine does not have is not offered at all.
        if (!QFileInfo::exists(path))
            return;
        tools->addAction(title, this,
                         [path] { QDesktopServices::openUrl(QUrl::fromLocalFile(path)); });
    };
    openFolder(QStringLiteral("Open Apple Configurator"),
               QStringLiteral("/Applications/Apple Configurator.app"));
    openFolder(QStringLiteral("Show Cached Firmware Files"), firmwareCachePath_);
    openFolder(QStringLiteral("Show Diagnostic Reports"),
               core::realHomeFolder() + QStringLiteral("/Library/Logs/DiagnosticReports"));
    tools->addAction(QStringLiteral("Show Log File"), this, [] {
        QDesktopServices::openUrl(
            QUrl::fromLocalFile(ZMRUnifiedLogger::sharedLogger().logFileURL()));
    });
    tools->addSeparator();
    tools->addAction(QStringLiteral("Copy Serial Numbers"), this,
                     [this] { devicePanel_->copySerialNumbers(); });
    tools->addAction(QStringLiteral("Export Selected Devices…"), this,
                     [this] { devicePanel_->exportSelection(); });
    tools->addAction(QStringLiteral("Export History…"), this,
                     [this] { devicePanel_->exportHistory(); });
}

DfuPortWindow* DesktopApplication::showDfuPortLookup() {
    if (!dfuPortWindow_) {
        dfuPortWindow_ = new DfuPortWindow(*dfuPorts_);
        dfuPortWindow_->setAttribute(Qt::WA_DeleteOnClose);
    }
    dfuPortWindow_->show();
    dfuPortWindow_->raise();
    dfuPortWindow_->activateWindow();
    return dfuPortWindow_;
}

DesktopApplication::~DesktopApplication() {
    core::NotificationCenter::defaultCenter().removeObserver(logProblemObserver_);
    for (const auto observer : hubPortObservers_)
        core::NotificationCenter::defaultCenter().removeObserver(observer);
    delete dfuPortWindow_;
    delete hubWindow_;
    delete mainWindow_;
}

DevicePanel* DesktopApplication::devicePanel() const {
    return devicePanel_;
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
    environment.bringToFront = [this] { windows_->bringToFront(); };
    environment.disconnectAllHubs = [this] { disconnectAllHubs(); };
    environment.startVersionCheck = [this] { startVersionCheck(); };
    return environment;
}

void DesktopApplication::start() {
    delegate_->applicationDidFinishLaunching();
    mainWindow_->show();
    devicePanel_->setFocus();
    // The device table follows the bus from the start; the first batch of arrivals lists the
    // Macs already there.
    USBManager::sharedManager()->startWatching();
    deviceTable_->refreshListing();
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
        connect(hubController_.get(), &app::HubController::rowsRebuilt, this,
                &DesktopApplication::showDisabledPorts);
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
