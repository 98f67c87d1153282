#pragma once

#include "usb/UsbRegistry.h"

namespace usb {

// A registry held in memory, for tests of everything built on the registry and for tools that
// replay a recorded bus. attach() and detach() behave like the bus: they change the listing and,
// while someone watches, emit the matching signal at once.
class MemoryUsbRegistry final : public UsbRegistry {
    Q_OBJECT
  public:
    explicit MemoryUsbRegistry(QList<PropertyMap> devices = {}, QObject* parent = nullptr);

    std::optional<QList<PropertyMap>> devices() override;
    QList<PropertyMap> startWatching() override;
    void stopWatching() override;

    void attach(const PropertyMap& properties);
    // Removes the first device with that locationID; false when there is none.
    bool detach(std::uint64_t locationID);
    // While set, devices() answers nullopt, as when the registry cannot be read.
    void setUnreadable(bool unreadable) { unreadable_ = unreadable; }
    int watchers() const { return watchers_; }

  private:
    QList<PropertyMap> devices_;
    bool unreadable_ = false;
    int watchers_ = 0;
};

}  // namespace usb
