#pragma once

#include "usb/UsbRegistry.h"

#include <QList>
#include <QObject>
#include <QTimer>

namespace unattended {

// The devices on the bus as the registry tells them: those attached now, and one changed() after
// each burst of arrivals and removals, so that a burst is looked at once, after it. Main thread.
class BusWatch final : public QObject {
    Q_OBJECT
  public:
    explicit BusWatch(usb::UsbRegistry& registry, QObject* parent = nullptr);
    ~BusWatch() override;

    void start();
    bool isWatching() const { return watching_; }
    const QList<usb::PropertyMap>& devices() const { return devices_; }

  signals:
    void changed();

  private:
    void arrived(const usb::PropertyMap& device);
    void removed(const usb::PropertyMap& device);

    usb::UsbRegistry& registry_;
    QList<usb::PropertyMap> devices_;
    QTimer burst_;
    bool watching_ = false;
};

}  // namespace unattended
