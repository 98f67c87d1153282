#include "unattended/SessionRestorer.h"

#include <QPointer>

#include <algorithm>

namespace unattended {
namespace {

const QString successful = QStringLiteral("Successful");
const QString cancelledStatus = QStringLiteral("Restore Cancelled");

}  // namespace

SessionRestorer::SessionRestorer(restore::RestoreSession& session,
                                 localport::LocalPortAutoRestore::ListDevices listDevices,
                                 QObject* parent)
    : Restorer(parent), session_(session), listDevices_(std::move(listDevices)) {
    connect(&session_, &restore::RestoreSession::deviceProgress, this,
            [this](const restore::DevicePtr& device, const QString& step, float progress) {
                if (!portOf_.contains(device.get()))
                    return;
                // A restore still waiting for its start when the bench stopped was passed over
                // by the cancel; it is cancelled the moment it shows it runs.
                if (cancelling_ && device->isRestoring() && !device->didCancel())
                    session_.cancel({device});
                emit this->progress(portOf_.value(device.get()), step, progress);
            });
    connect(&session_, &restore::RestoreSession::deviceFinished, this,
            &SessionRestorer::deviceFinished);
}

void SessionRestorer::restore(const QString& port, std::uint64_t location) {
    QPointer<SessionRestorer> alive(this);
    listDevices_([alive, port, location](const restore::DeviceList& devices) {
        // The listing may answer on another thread.
        if (!alive)
            return;
        QMetaObject::invokeMethod(
            alive.data(),
            [alive, port, location, devices] {
                if (alive)
                    alive->listed(port, location, devices);
            },
            Qt::QueuedConnection);
    });
}

void SessionRestorer::listed(const QString& port, std::uint64_t location,
                             const restore::DeviceList& devices) {
    const auto found = std::find_if(devices.begin(), devices.end(), [&](const auto& device) {
        return std::uint64_t(device->locationID()) == location && device->inDFU();
    });
    if (found == devices.end()) {
        emit notListed(port);
        return;
    }
    const restore::DevicePtr device = *found;
    portOf_.insert(device.get(), port);
    restoring_.append(device);
    if (!session_.restore({device})) {
        portOf_.remove(device.get());
        restoring_.removeOne(device);
        emit refused(port, session_.showACNotInstalledError()
                               ? QStringLiteral("Apple Configurator is not installed")
                               : QStringLiteral("the restore queue refused it"));
        return;
    }
    emit started(port, {device->deviceType(), device->ecid(), device->serialNumber()});
}

void SessionRestorer::deviceFinished(const restore::DevicePtr& device) {
    const QString port = portOf_.take(device.get());
    if (port.isEmpty())
        return;
    restoring_.removeOne(device);
    const QString status = device->restoreStatus();
    emit finished(port, status == successful, status == cancelledStatus, status);
}

void SessionRestorer::cancelAll() {
    cancelling_ = true;
    session_.cancel(restoring_);
}

}  // namespace unattended
