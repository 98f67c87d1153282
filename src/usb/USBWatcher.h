#pragma once

#include "usb/USBWatcherDelegate.h"
#include "usb/UsbRegistry.h"

#include <QList>
#include <QMetaObject>

#include <memory>

// Turns the registry's arrivals and removals into delegate calls on the main loop. Creating it
// reports every device already attached as added.
class USBWatcher {
  public:
    USBWatcher(std::weak_ptr<USBWatcherDelegate> delegate, usb::UsbRegistry& registry);
    ~USBWatcher();
    USBWatcher(const USBWatcher&) = delete;
    USBWatcher& operator=(const USBWatcher&) = delete;

  private:
    enum class Iterator { added, removed };

    // Hands every service to the delegate chosen by the iterator. Services are taken to the
    // end even when the delegate has gone, so the source keeps notifying.
    void notificationCallback(Iterator iterator, const QList<usb::PropertyMap>& services);

    std::weak_ptr<USBWatcherDelegate> delegate_;
    usb::UsbRegistry& registry_;
    QMetaObject::Connection addedIterator_;
    QMetaObject::Connection removedIterator_;
};
