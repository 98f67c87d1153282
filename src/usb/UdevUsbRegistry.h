#pragma once

#include "usb/UsbRegistry.h"

#include <QHash>

#include <memory>

struct udev;
struct udev_device;
struct udev_monitor;
class QSocketNotifier;

namespace usb {

// The registry over libudev: devices of subsystem "usb", type "usb_device".
class UdevUsbRegistry final : public UsbRegistry {
    Q_OBJECT
  public:
    explicit UdevUsbRegistry(QObject* parent = nullptr);
    ~UdevUsbRegistry() override;

    std::optional<QList<PropertyMap>> devices() override;
    QList<PropertyMap> startWatching() override;
    void stopWatching() override;

    // The property map of one udev device; public so the mapping can be checked on its own.
    static PropertyMap propertiesOf(udev_device* device);

  private:
    bool openMonitor();
    void closeMonitor();
    void readMonitor();

    int watchers_ = 0;
    udev* udev_ = nullptr;
    udev_monitor* monitor_ = nullptr;
    std::unique_ptr<QSocketNotifier> notifier_;
    // Remove events carry no sysfs attributes, so a removal is reported with what was read at
    // arrival, keyed by syspath.
    QHash<QString, PropertyMap> attached_;
};

}  // namespace usb
