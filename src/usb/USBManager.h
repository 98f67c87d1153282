#pragma once

#include "usb/DeviceIOKitInfo.h"
#include "usb/OneShotTimer.h"
#include "usb/USBWatcher.h"
#include "usb/USBWatcherDelegate.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <QVariantMap>

#include <memory>

namespace core {
class Clock;
class NotificationCenter;
}  // namespace core

// Broadcasts USB arrivals and removals as DeviceIOKitInfo records: "deviceRemoved" at once for
// every detached device, "deviceAdded" for the attachments collected in a batch window. Lives
// on the main thread.
class USBManager final : public USBWatcherDelegate,
                         public std::enable_shared_from_this<USBManager> {
  public:
    static inline const QString deviceAddedNotification = QStringLiteral("deviceAdded");
    static inline const QString deviceRemovedNotification = QStringLiteral("deviceRemoved");
    static inline const QString devicesKey = QStringLiteral("devices");

    USBManager(usb::UsbRegistry& registry, core::Clock& clock, core::NotificationCenter& center,
               usb::TimerFactory timers);
    ~USBManager() override;

    // Over the process's registry, the system clock, the default centre and main-loop timers.
    static std::shared_ptr<USBManager> sharedManager();

    // Creates the watcher, with this manager as its delegate, unless there is one. Devices
    // already attached are reported through the first batch.
    void startWatching();
    bool isWatching() const { return usbWatcher_ != nullptr; }

    void deviceAdded(const usb::PropertyMap& service) override;
    void deviceRemoved(const usb::PropertyMap& service) override;

    // The records a "deviceAdded" or "deviceRemoved" carries.
    static QList<DeviceIOKitInfo> devicesInUserInfo(const QVariantMap& userInfo);

    double delay() const { return delay_; }
    const QList<DeviceIOKitInfo>& pendingDevices() const { return devices_; }

  private:
    void deliverBatch();

    core::Clock& clock_;
    core::NotificationCenter& center_;
    usb::UsbRegistry& registry_;
    usb::TimerFactory timers_;

    std::unique_ptr<USBWatcher> usbWatcher_;
    QList<DeviceIOKitInfo> devices_;
    QDateTime lastUpdated_;
    std::unique_ptr<usb::OneShotTimer> scheduledTimer_;
    double delay_ = 0.1;
};
