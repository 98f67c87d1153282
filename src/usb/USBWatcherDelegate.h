#pragma once

#include "usb/UsbRegistry.h"

// Receiver of the watcher's calls. The service is the registry entry of the device; it is
// valid only during the call.
class USBWatcherDelegate {
  public:
    virtual ~USBWatcherDelegate() = default;
    virtual void deviceAdded(const usb::PropertyMap& service) = 0;
    virtual void deviceRemoved(const usb::PropertyMap& service) = 0;
};
