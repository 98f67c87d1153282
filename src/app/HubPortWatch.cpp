#include "app/HubPortWatch.h"

#include "configurator/AC2Device.h"
#include "core/NotificationCenter.h"
#include "usb/USBManager.h"
#include "usb/UsbRegistry.h"

namespace app {
namespace {

// USB arrivals come in bursts; the hubs' ports are read once the burst is over.
constexpr int kBurstEndMs = 300;
constexpr int kFreshForMs = 1000;

}  // namespace

HubPortWatch::HubPortWatch(usb::UsbRegistry& registry, core::NotificationCenter& center,
                           QObject* parent)
    : QObject(parent), registry_(registry), center_(center) {}

HubPortWatch::~HubPortWatch() {
    for (const auto observer : observers_) center_.removeObserver(observer);
}

QString HubPortWatch::portOf(const AC2Device& device) {
    readIfOld();
    return names_ ? names_->nameOf(std::uint64_t(device.locationID())) : QString();
}

void HubPortWatch::readIfOld() {
    if (names_ && age_.isValid() && !age_.hasExpired(kFreshForMs))
        return;
    age_.start();
    if (const auto devices = registry_.devices())
        names_.emplace(*devices);
}

void HubPortWatch::follow() {
    burstEnd_.setSingleShot(true);
    burstEnd_.setInterval(kBurstEndMs);
    connect(&burstEnd_, &QTimer::timeout, this, &HubPortWatch::read);
    for (const QString& name :
         {USBManager::deviceAddedNotification, USBManager::deviceRemovedNotification})
        observers_.push_back(center_.addObserver(name, [this](const QString&, const QVariantMap&) {
            // Posted on any thread; the timer belongs to the main one.
            QMetaObject::invokeMethod(&burstEnd_, qOverload<>(&QTimer::start));
        }));
    read();
}

void HubPortWatch::read() {
    age_.start();
    if (const auto devices = registry_.devices())
        names_.emplace(*devices);
    if (names_)
        emit portsRead(names_->names());
}

}  // namespace app
