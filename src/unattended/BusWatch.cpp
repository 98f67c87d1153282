#include "unattended/BusWatch.h"

#include <algorithm>

namespace unattended {
namespace {

// Removals carry the arrival's properties; the session number tells two attachments of the same
// device apart where the registry gives one.
bool sameAttachment(const usb::PropertyMap& a, const usb::PropertyMap& b) {
    const QVariant session = a.value(usb::keys::sessionID);
    if (session.isValid() && b.contains(usb::keys::sessionID))
        return session == b.value(usb::keys::sessionID);
    return a == b;
}

}  // namespace

BusWatch::BusWatch(usb::UsbRegistry& registry, QObject* parent)
    : QObject(parent), registry_(registry) {
    burst_.setSingleShot(true);
    burst_.setInterval(0);
    connect(&burst_, &QTimer::timeout, this, &BusWatch::changed);
}

BusWatch::~BusWatch() {
    if (watching_)
        registry_.stopWatching();
}

void BusWatch::start() {
    watching_ = true;
    connect(&registry_, &usb::UsbRegistry::deviceArrived, this, &BusWatch::arrived);
    connect(&registry_, &usb::UsbRegistry::deviceRemoved, this, &BusWatch::removed);
    devices_ = registry_.startWatching();
}

void BusWatch::arrived(const usb::PropertyMap& device) {
    devices_.append(device);
    if (!burst_.isActive())
        burst_.start();
}

void BusWatch::removed(const usb::PropertyMap& device) {
    const auto gone =
        std::find_if(devices_.begin(), devices_.end(),
                     [&](const usb::PropertyMap& known) { return sameAttachment(known, device); });
    if (gone != devices_.end())
        devices_.erase(gone);
    if (!burst_.isActive())
        burst_.start();
}

}  // namespace unattended
