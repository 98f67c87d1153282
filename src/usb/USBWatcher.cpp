#include "usb/USBWatcher.h"

#include <QObject>

USBWatcher::USBWatcher(std::weak_ptr<USBWatcherDelegate> delegate, usb::UsbRegistry& registry)
    : delegate_(std::move(delegate)), registry_(registry) {
    addedIterator_ = QObject::connect(&registry_, &usb::UsbRegistry::deviceArrived,
                                      [this](const usb::PropertyMap& service) {
                                          notificationCallback(Iterator::added, {service});
                                      });
    removedIterator_ = QObject::connect(&registry_, &usb::UsbRegistry::deviceRemoved,
                                        [this](const usb::PropertyMap& service) {
                                            notificationCallback(Iterator::removed, {service});
                                        });
    // The first drain: what is attached now arrives as added.
    notificationCallback(Iterator::added, registry_.startWatching());
}

USBWatcher::~USBWatcher() {
    QObject::disconnect(addedIterator_);
    QObject::disconnect(removedIterator_);
    registry_.stopWatching();
}

void USBWatcher::notificationCallback(Iterator iterator, const QList<usb::PropertyMap>& services) {
    const std::shared_ptr<USBWatcherDelegate> delegate = delegate_.lock();
    for (const usb::PropertyMap& service : services) {
        if (!delegate)
            continue;
        if (iterator == Iterator::added)
            delegate->deviceAdded(service);
        else
            delegate->deviceRemoved(service);
    }
}
