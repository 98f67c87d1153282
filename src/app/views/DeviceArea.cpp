#include "views/DeviceArea.h"

#include "views/DevicePanel.h"
#include "views/LocalPortSection.h"
#include "views/MainWindow.h"
#include "views/UnattendedBenchGroupView.h"

#include "engines/EngineChoice.h"
#include "app/BenchMap.h"
#include "app/DeviceListModel.h"
#include "app/DeviceTableController.h"
#include "app/DfuPortLookup.h"
#include "app/HistoryModel.h"
#include "app/HubPortWatch.h"
#include "core/AppState.h"
#include "core/Clock.h"
#include "core/NotificationCenter.h"
#include "core/Settings.h"
#include "localport/AutoDFU.h"
#include "localport/LocalPortAutoRestore.h"
#include "restore/AttachmentEvents.h"
#include "restore/RestoreSession.h"
#include "unattended/BenchController.h"
#include "usb/USBManager.h"
#include "usb/UsbRegistry.h"

#include <QAction>
#include <QSettings>
#include <QSplitter>
#include <QVBoxLayout>

namespace views {
namespace {

const QString kDeviceSplitterKey = QStringLiteral("MainWindow/deviceSplitter");
const QString kBenchMapShownKey = QStringLiteral("MainWindow/benchMapShown");

}  // namespace

DeviceArea::DeviceArea(core::AppState& state, QSettings& windowState, MainWindow& window,
                       QObject* parent)
    : QObject(parent), windowState_(windowState) {
    buildModels(state);
    window.setDeviceArea(buildWidget(state));
    rememberSplitter(panel_->splitter());
    rememberBenchMapChoice(window);
    // The bench map has a tile for every usable port of the hubs on the bus, whether or not the
    // hub window ever connected to them; it follows hubs plugged in and pulled out.
    connect(hubPorts_.get(), &app::HubPortWatch::portsRead, benchMap_.get(),
            &app::BenchMap::setHubPorts);
    hubPorts_->follow();
    connect(session_.get(), &restore::RestoreSession::batchRunningChanged, &state,
            &core::AppState::setIsRunning);
}

DeviceArea::~DeviceArea() = default;

void DeviceArea::buildModels(core::AppState& state) {
    restore::RestoreSession::Collaborators restoreEnvironment =
        restore::RestoreSession::defaultCollaborators(&state, engines::sharedEngine());
    restoreEnvironment.hostPort = localport::LocalPortAutoRestore::handOffTo(AutoDFU::shared());
    firmwareCachePath_ = restoreEnvironment.firmwareCachePath;
    session_ = std::make_unique<restore::RestoreSession>(restoreEnvironment);
    hubPorts_ = std::make_unique<app::HubPortWatch>(usb::UsbRegistry::shared(),
                                                    core::NotificationCenter::defaultCenter());
    devices_ = std::make_unique<app::DeviceListModel>(app::DeviceListModel::Collaborators{
        &core::Clock::system(),
        [this](const AC2Device& device) { return hubPorts_->portOf(device); }});
    attachmentEvents_ = std::make_unique<restore::AttachmentEvents>(
        devices_->roster(), core::Settings::shared(),
        restore::AttachmentEvents::to(*restoreEnvironment.events));
    benchController_ = std::make_unique<unattended::BenchController>(*session_);
    devices_->showPortPhases(benchController_->model());
    history_ = std::make_unique<app::HistoryModel>(*session_);
    dfuPorts_ = std::make_unique<app::DfuPortLookup>();
    deviceTable_ =
        std::make_unique<app::DeviceTableController>(app::DeviceTableController::Environment{
            restoreEnvironment.engine, session_.get(), devices_.get(), &state,
            &core::NotificationCenter::defaultCenter()});
    benchMap_ = std::make_unique<app::BenchMap>(*devices_, AutoDFU::dfuPortAddress);
    benchMap_->showPortPhases(benchController_->model());
}

QWidget* DeviceArea::buildWidget(core::AppState& state) {
    panel_ =
        new DevicePanel(*deviceTable_, *devices_, *session_, *history_, *dfuPorts_, *benchMap_);
    connect(panel_, &DevicePanel::portCommandRequested, this, &DeviceArea::runPortCommand);
    localPort_ = std::make_unique<LocalPortSection>(state, *session_, windowState_);
    auto* area = new QWidget;
    auto* layout = new QVBoxLayout(area);
    layout->addWidget(panel_, 1);
    layout->addWidget(localPort_->buildWidget());
    layout->addWidget(new UnattendedBenchGroupView(*benchController_));
    return area;
}

void DeviceArea::rememberSplitter(QSplitter* splitter) {
    splitter->restoreState(windowState_.value(kDeviceSplitterKey).toByteArray());
    connect(splitter, &QSplitter::splitterMoved, this,
            [this, splitter] { windowState_.setValue(kDeviceSplitterKey, splitter->saveState()); });
}

void DeviceArea::rememberBenchMapChoice(MainWindow& window) {
    QAction* toggle = window.benchMapAction();
    toggle->setChecked(windowState_.value(kBenchMapShownKey, false).toBool());
    panel_->showBenchMap(toggle->isChecked());
    connect(toggle, &QAction::toggled, this, [this](bool shown) {
        windowState_.setValue(kBenchMapShownKey, shown);
        panel_->showBenchMap(shown);
    });
}

DevicePanel& DeviceArea::panel() const {
    return *panel_;
}

void DeviceArea::start() {
    panel_->setFocus();
    USBManager::sharedManager()->startWatching();
    deviceTable_->refreshListing();
}

void DeviceArea::showDisabledPorts(const QSet<QString>& ports) {
    benchMap_->setDisabledPorts(ports);
}

void DeviceArea::runPortCommand(const QString& port, PortCommand command) {
    if (port.isEmpty())
        localPort_->run(command);
    else
        emit hubPortCommandRequested(port, command);
}

}  // namespace views
