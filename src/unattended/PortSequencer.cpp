#include "unattended/PortSequencer.h"

#include "core/Log.h"
#include "usb/HubPortNames.h"

#include <utility>

namespace unattended {
namespace {

QSet<QString> hubPortsOn(const QList<usb::PropertyMap>& devices) {
    const QStringList names = usb::HubPortNames(devices).names();
    return {names.begin(), names.end()};
}

}  // namespace

PortSequencer::PortSequencer(PortDriver& driver, bool followNewHubs)
    : driver_(driver), followNewHubs_(followNewHubs) {}

void PortSequencer::start(const QList<usb::PropertyMap>& devices) {
    portsOnUsb_ = hubPortsOn(devices);
}

void PortSequencer::noticeBus(const QList<usb::PropertyMap>& devices) {
    const QSet<QString> onUsb = hubPortsOn(devices);
    if (followNewHubs_ && !stopped_ && !onUsb.isEmpty() &&
        !QSet<QString>(onUsb).subtract(portsOnUsb_).isEmpty()) {
        ZMRLogLevel1(
            QStringLiteral("Unattended bench: a hub was plugged in; looking for the hubs "
                           "again once no sequence runs"));
        refreshWanted_ = true;
    }
    portsOnUsb_ = onUsb;
    refreshWhenIdle();
}

void PortSequencer::run(const QString& port, bool recovery) {
    if (refreshWanted_ || refreshing_) {
        held_.insert(port, recovery);
        refreshWhenIdle();
        return;
    }
    begin(port, recovery);
}

void PortSequencer::begin(const QString& port, bool recovery) {
    running_.insert(port);
    recovery ? driver_.recovery(port) : driver_.dfu(port);
}

void PortSequencer::ended(const QString& port) {
    running_.remove(port);
    refreshWhenIdle();
}

void PortSequencer::refreshWhenIdle() {
    if (!refreshWanted_ || refreshing_ || !running_.isEmpty())
        return;
    refreshWanted_ = false;
    refreshing_ = true;
    driver_.refresh();
}

void PortSequencer::refreshed() {
    refreshing_ = false;
    const QHash<QString, bool> held = std::exchange(held_, {});
    for (auto it = held.begin(); it != held.end(); ++it) begin(it.key(), it.value());
}

QStringList PortSequencer::stop() {
    stopped_ = true;
    refreshWanted_ = false;
    driver_.stop();
    return std::exchange(held_, {}).keys();
}

}  // namespace unattended
