#include "app/HubController.h"

#include "configurator/AC2Device.h"
#include "core/HubPortName.h"
#include "hubs/AcronameHub.h"
#include "usb/USBManager.h"

namespace app {

HubController::HubController(Environment environment, QObject* parent)
    : QObject(parent), environment_(std::move(environment)) {
    // Countdowns and pauses move on the sheet while no event comes.
    activityTick_.setInterval(1000);
    connect(&activityTick_, &QTimer::timeout, this, &HubController::activityChanged);
}

HubController::~HubController() {
    for (const auto token : observers_) environment_.notifications->removeObserver(token);
}

void HubController::viewShown() {
    if (observers_.isEmpty()) {
        // USB notifications may be posted on any thread; the rebuild starts on the main one.
        const auto observer = [this, alive = alive()](const QString&, const QVariantMap& userInfo) {
            if (mentionsHub(userInfo))
                onMain(alive, [this] { refresh(); });
        };
        observers_ << environment_.notifications->addObserver(USBManager::deviceAddedNotification,
                                                              observer);
        observers_ << environment_.notifications->addObserver(USBManager::deviceRemovedNotification,
                                                              observer);
        environment_.startUsbWatching();
    }
    refresh();
}

bool HubController::mentionsHub(const QVariantMap& userInfo) {
    const QList<DeviceIOKitInfo> devices = USBManager::devicesInUserInfo(userInfo);
    return std::any_of(devices.begin(), devices.end(), [](const DeviceIOKitInfo& device) {
        return device.vendor == hubVendorID && device.productName == hubProductName;
    });
}

// A rebuild reconnects every hub, so it never overlaps another one or a running sequence; a
// request meanwhile is kept and served when the current work ends.
void HubController::refresh() {
    if (isRefreshing_ || showModal_) {
        refreshAgain_ = true;
        return;
    }
    refreshAgain_ = false;
    setIsRefreshing(true);
    environment_.runInBackground([this, station = environment_.station, alive = alive()] {
        station->refreshAcronameDevices([this, alive](AC2Devices entries) {
            onMain(alive, [this, entries] { rebuildRows(entries); });
        });
    });
}

void HubController::rebuildRows(const AC2Devices& entries) {
    QList<HubDevice> rows;
    for (const auto& entry : entries) rows << HubDevice::fromEntry(*entry);
    model_.setHubDevices(std::move(rows));
    setIsRefreshing(false);
    emit rowsRebuilt();
    if (refreshAgain_)
        refresh();
}

QSet<QString> HubController::disabledPorts() const {
    QSet<QString> disabled;
    for (const HubDevice& row : hubDevices())
        if (row.acronamePort && !row.acronamePort->isEnabled())
            disabled.insert(core::hubPortName(row.hubSerialNumber, int(row.portID)));
    return disabled;
}

AcronamePorts HubController::selectedPorts(const QSet<QUuid>& selectedDevices) const {
    AcronamePorts ports;
    for (const HubDevice& row : hubDevices())
        if (selectedDevices.contains(row.id) && row.acronamePort)
            ports.push_back(row.acronamePort);
    return ports;
}

void HubController::dfu(const QSet<QUuid>& selectedDevices) {
    runSequence(&HubStation::dfuModeForAcronamePorts, selectedDevices);
}

void HubController::restart(const QSet<QUuid>& selectedDevices) {
    runSequence(&HubStation::restartForAcronamePorts, selectedDevices);
}

void HubController::recovery(const QSet<QUuid>& selectedDevices) {
    runSequence(&HubStation::recoveryForAcronamePorts, selectedDevices);
}

void HubController::runSequence(Sequence sequence, const QSet<QUuid>& selectedDevices) {
    AcronamePorts ports = selectedPorts(selectedDevices);
    if (ports.empty() || showModal_)
        return;
    setUpdateMessage(QString());
    activity_ = {};
    hubLines_ = environment_.station->worksHubsAtOnce();
    sequenceClock_.start();
    activityTick_.start();
    emit activityChanged();
    setShowModal(true);
    auto update = [this, alive = alive()](const QString& text) {
        onMain(alive, [this, text] { setUpdateMessage(text); });
    };
    auto completion = [this, alive = alive()](bool) { onMain(alive, [this] { sequenceEnded(); }); };
    // The event is put into words on the sequence's thread, while its port surely exists.
    auto observer = [this, alive = alive()](const PortProgress& progress) {
        onMain(alive, [this, event = PortActivity::describe(progress)] {
            activity_.record(event, sequenceClock_.elapsed());
            emit activityChanged();
        });
    };
    ((*environment_.station).*sequence)(std::move(ports), std::move(update), std::move(completion),
                                        std::move(observer));
}

QString HubController::activityText() const {
    const qint64 now = sequenceClock_.isValid() ? sequenceClock_.elapsed() : 0;
    if (!hubLines_ || activity_.isPaused())
        return activity_.stepText(now, true);
    return activity_.hubLines(now).join('\n');
}

// The sequence leaves the ports' hubs reconnected with new port records, so the rows are
// rebuilt to act on what is there now.
void HubController::sequenceEnded() {
    activityTick_.stop();
    setShowModal(false);
    refreshAgain_ = false;
    refresh();
}

void HubController::rebootHub(const QSet<QUuid>& selectedDevices) {
    onHub(selectedDevices, &HubStation::rebootHub);
}

void HubController::toggleLED(const QSet<QUuid>& selectedDevices) {
    onHub(selectedDevices, &HubStation::toggleLED);
}

void HubController::onHub(const QSet<QUuid>& selectedDevices,
                          void (HubStation::*command)(AcronameHub&)) {
    const auto row =
        std::find_if(hubDevices().begin(), hubDevices().end(),
                     [&](const HubDevice& r) { return selectedDevices.contains(r.id) && r.hub; });
    if (row == hubDevices().end())
        return;
    environment_.runInBackground(
        [station = environment_.station, hub = row->hub, command] { ((*station).*command)(*hub); });
}

void HubController::setIsRefreshing(bool refreshing) {
    if (refreshing == isRefreshing_)
        return;
    isRefreshing_ = refreshing;
    emit isRefreshingChanged(refreshing);
}

void HubController::setShowModal(bool shown) {
    if (shown == showModal_)
        return;
    showModal_ = shown;
    emit showModalChanged(shown);
}

void HubController::setUpdateMessage(const QString& message) {
    if (message == updateMessage_)
        return;
    updateMessage_ = message;
    emit updateMessageChanged(message);
}

void HubController::onMain(const Lifetime& alive, std::function<void()> task) {
    dispatch::main([alive, task = std::move(task)] {
        if (alive.lock())
            task();
    });
}

}  // namespace app
