#include "usb/USBManager.h"

#include "core/Clock.h"
#include "core/NotificationCenter.h"
#include "usb/DeviceIOKit.h"

USBManager::USBManager(usb::UsbRegistry& registry, core::Clock& clock,
                       core::NotificationCenter& center, usb::TimerFactory timers)
    : clock_(clock),
      center_(center),
      registry_(registry),
      timers_(std::move(timers)),
      lastUpdated_(clock.now()) {}

USBManager::~USBManager() = default;

std::shared_ptr<USBManager> USBManager::sharedManager() {
    // Never destroyed: the manager lives for the process, and its watcher must not outlive
    // the event loop's teardown in an unknown order.
    static auto* const manager = new std::shared_ptr<USBManager>(std::make_shared<USBManager>(
        usb::UsbRegistry::shared(), core::Clock::system(),
        core::NotificationCenter::defaultCenter(), usb::mainLoopTimers()));
    return *manager;
}

void USBManager::startWatching() {
    if (usbWatcher_)
        return;
    usbWatcher_ = std::make_unique<USBWatcher>(weak_from_this(), registry_);
}

void USBManager::deviceAdded(const usb::PropertyMap& service) {
    const DeviceIOKitInfo info = DeviceIOKit::deviceInfoWithService(&service);
    // Seconds from now to the last update: negative once it lies in the past, so every record
    // is batched unless the last update lies a whole window in the future.
    const double interval = static_cast<double>(clock_.now().msecsTo(lastUpdated_)) / 1000.0;
    if (interval < delay_) {
        devices_.append(info);
        if (scheduledTimer_ && scheduledTimer_->isValid())
            return;
        scheduledTimer_ = timers_(delay_, [this] { deliverBatch(); });
    }
    lastUpdated_ = clock_.now();
}

void USBManager::deliverBatch() {
    center_.post(deviceAddedNotification, {{devicesKey, QVariant::fromValue(devices_)}});
    // After the first batch, arrivals are collected for five seconds: a bench of Macs coming
    // back from DFU arrives over seconds, and one batch suits the listeners better.
    delay_ = 5.0;
    devices_.clear();
}

void USBManager::deviceRemoved(const usb::PropertyMap& service) {
    const QList<DeviceIOKitInfo> removed{DeviceIOKit::deviceInfoWithService(&service)};
    center_.post(deviceRemovedNotification, {{devicesKey, QVariant::fromValue(removed)}});
}

QList<DeviceIOKitInfo> USBManager::devicesInUserInfo(const QVariantMap& userInfo) {
    return userInfo.value(devicesKey).value<QList<DeviceIOKitInfo>>();
}
