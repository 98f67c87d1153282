#include "app/DeviceTableController.h"

#include "app/DevicesCsv.h"
#include "restore/RestoreEngine.h"
#include "core/AppState.h"
#include "core/NotificationCenter.h"
#include "usb/USBManager.h"

#include <QPointer>

namespace app {

DeviceTableController::DeviceTableController(Environment environment, QObject* parent)
    : QObject(parent), e_(environment) {
    listingDelay_.setSingleShot(true);
    listingDelay_.setInterval(e_.listingDelayMs);
    connect(&listingDelay_, &QTimer::timeout, this, &DeviceTableController::refreshListing);
    relist_.setInterval(e_.relistMs);
    connect(&relist_, &QTimer::timeout, this, &DeviceTableController::refreshListing);
    if (e_.relistMs > 0)
        relist_.start();

    if (e_.notifications) {
        e_.model->roster().observe(*e_.notifications);
        // The model hears of every arrival at once; the listing that completes the picture waits
        // until the burst is over.
        const auto later = [this](const QString&, const QVariantMap&) {
            QMetaObject::invokeMethod(&listingDelay_, qOverload<>(&QTimer::start));
        };
        observers_ = {e_.notifications->addObserver(USBManager::deviceAddedNotification, later),
                      e_.notifications->addObserver(USBManager::deviceRemovedNotification, later)};
    }
    connect(e_.session, &restore::RestoreSession::deviceStatusChanged, this,
            [this](const restore::DevicePtr& device) { e_.model->deviceStatusChanged(device); });
    connect(e_.session, &restore::RestoreSession::deviceProgress, this,
            [this](const restore::DevicePtr& device, const QString&, float progress) {
                e_.model->deviceProgress(device, progress);
                updateProgressBar();
            });
    connect(e_.session, &restore::RestoreSession::batchFinished, this, [this] {
        e_.appState->setProgressBarValue(0);
        listingDelay_.start();
    });
}

DeviceTableController::~DeviceTableController() {
    for (const auto token : observers_) e_.notifications->removeObserver(token);
}

void DeviceTableController::refreshListing() {
    if (listing_ || !e_.engine->isInstalled())
        return;
    listing_ = true;
    // An answer inside the call means another listing (the hub window's) holds the tool: its
    // empty list says nothing about the bench, so ask again a little later.
    auto answeredAtOnce = std::make_shared<bool>(true);
    QPointer<DeviceTableController> self(this);
    e_.engine->listDevices(
        [this, self, answeredAtOnce](const configurator::DeviceList& listed) {
            if (!self)
                return;
            listing_ = false;
            if (*answeredAtOnce) {
                listingDelay_.start();
                emit listingFinished(-1);
                return;
            }
            e_.model->roster().applyListing(listed);
            emit listingFinished(static_cast<int>(listed.size()));
        });
    *answeredAtOnce = false;
}

bool DeviceTableController::restore(const QList<int>& rows) {
    return e_.session->restore(devices(rows));
}

void DeviceTableController::cancel() {
    restore::DeviceList all;
    for (int row = 0; row < e_.model->rowCount(); ++row) all.append(e_.model->deviceAt(row));
    e_.session->cancel(all);
}

restore::DeviceList DeviceTableController::devices(const QList<int>& rows) const {
    restore::DeviceList selected;
    for (const int row : rows)
        if (const auto device = e_.model->deviceAt(row))
            selected.append(device);
    return selected;
}

QString DeviceTableController::serialNumbers(const QList<int>& rows) const {
    QStringList serials;
    for (const auto& device : devices(rows))
        if (!device->serialNumber().isEmpty())
            serials << device->serialNumber();
    return serials.isEmpty() ? QString() : serials.join('\n') + '\n';
}

QString DeviceTableController::csv(const QList<int>& rows) const {
    return devicesCSV(devices(rows));
}

// The bar under the table shows the batch as a whole: the mean progress of the restoring rows.
void DeviceTableController::updateProgressBar() {
    double sum = 0;
    int restoring = 0;
    for (int row = 0; row < e_.model->rowCount(); ++row) {
        if (!e_.model->deviceAt(row)->isRestoring())
            continue;
        sum += std::max(
            0.0, e_.model->data(e_.model->index(row, 0), DeviceListModel::ProgressRole).toDouble());
        ++restoring;
    }
    e_.appState->setProgressBarValue(restoring ? sum / restoring : 0);
}

}  // namespace app
