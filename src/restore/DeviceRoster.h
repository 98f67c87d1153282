#pragma once

#include "configurator/AC2Device.h"
#include "configurator/DeviceListing.h"
#include "usb/DeviceIOKitInfo.h"

#include <QDateTime>
#include <QList>
#include <QObject>

#include <cstdint>
#include <memory>
#include <vector>

namespace core {
class Clock;
class NotificationCenter;
}  // namespace core

namespace restore {

// The Macs of the bench, one record per Mac: Apple Configurator's listing merged with what the
// USB registry reports, by ECID and by serial number, and by USB location for a Mac that
// re-enumerates under another identity (booted → DFU) without either. A record stays the same
// object for life, so a restore's status stays with it through listings and re-enumerations; a
// Mac that left the bus is kept for a grace period in case it is only changing modes. Rows are
// announced before and after they come or go, so a table model can follow them.
class DeviceRoster : public QObject {
    Q_OBJECT

  public:
    static constexpr qint64 disconnectedGraceSeconds = 60;

    explicit DeviceRoster(core::Clock& clock, QObject* parent = nullptr);
    ~DeviceRoster() override;

    int size() const { return static_cast<int>(rows_.size()); }
    std::shared_ptr<AC2Device> deviceAt(int row) const;
    int rowOf(const std::shared_ptr<AC2Device>& device) const;
    // On the bus or in Apple Configurator's last listing.
    bool isConnected(int row) const;
    // Whether USB last showed the Mac in recovery mode.
    bool isInRecovery(int row) const;

    // A new listing from Apple Configurator: records are updated in place, new Macs appended.
    void applyListing(const configurator::DeviceList& listed);
    // USB arrivals and removals, as USBManager posts them; other devices than Macs are ignored.
    void usbDevicesAdded(const QList<DeviceIOKitInfo>& devices);
    void usbDevicesRemoved(const QList<DeviceIOKitInfo>& devices);
    // Follows "deviceAdded" and "deviceRemoved" of the centre until this roster goes.
    void observe(core::NotificationCenter& center);
    // Drops the records that have been off the bus, unlisted and idle for the grace period.
    void purgeDisconnected();

  signals:
    void rowAboutToBeAdded(int row);
    void rowAdded(int row);
    void rowAboutToBeRemoved(int row);
    void rowRemoved(int row);
    void rowChanged(int row);
    // A Mac arrived on the bus or left it; its record holds everything known of it by then.
    void attached(const std::shared_ptr<AC2Device>& device);
    void detached(const std::shared_ptr<AC2Device>& device);

  private:
    struct Row {
        std::shared_ptr<AC2Device> device;
        bool listed = false;  // in Apple Configurator's last listing
        bool onUSB = false;   // the registry last reported it present
        bool inRecovery = false;
        QDateTime leftAt;  // when it stopped being either, for the grace period

        bool connected() const { return listed || onUSB; }
    };
    struct Identity {
        std::uint64_t ecid = 0;
        QString serialNumber;
        std::int64_t location = 0;
    };

    int findRow(const Identity& identity) const;
    int appendRow();
    void takeListed(int row, const AC2Device& fresh);
    void takeArrival(int row, const DeviceIOKitInfo& info);
    void markUnlisted(const QList<bool>& seen);

    core::Clock& clock_;
    QList<Row> rows_;
    core::NotificationCenter* center_ = nullptr;
    std::vector<std::uint64_t> observers_;
    // Notifications may come from other threads; they are handed to the main loop with this.
    std::shared_ptr<int> lifetime_ = std::make_shared<int>(0);
};

}  // namespace restore
