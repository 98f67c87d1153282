#pragma once

#include "configurator/AC2Device.h"
#include "configurator/DeviceListing.h"
#include "usb/DeviceIOKitInfo.h"

#include <QAbstractTableModel>
#include <QDateTime>
#include <QList>

#include <functional>
#include <memory>
#include <optional>

namespace core {
class Clock;
class NotificationCenter;
class Settings;
}  // namespace core
namespace restore {
class EventNotification;
}

namespace unattended {
struct BenchPort;
class BenchPortModel;
}  // namespace unattended

namespace app {

// The devices of the bench, one row per Mac: Apple Configurator's listing merged with what the
// USB registry reports, by ECID and by serial number, and by USB location for a Mac that
// re-enumerates under another identity (booted → DFU) without either. A row keeps its device
// record for life, so a restore's status and progress stay with it through listings and
// re-enumerations; a Mac that left the bus stays as "disconnected" for a grace period in case it
// is only changing modes. Widget-free; the device table binds to it.
class DeviceListModel : public QAbstractTableModel {
    Q_OBJECT

  public:
    enum Column { Name, Model, Ecid, Serial, Location, HubPort, DFU, Status, ColumnCount };
    // The restore progress of a row, 0 to 1, or -1 when none is known.
    static constexpr int ProgressRole = Qt::UserRole + 1;
    // A value that sorts the column naturally (numbers as numbers).
    static constexpr int SortRole = Qt::UserRole + 2;
    // Whether USB last showed the Mac in recovery mode (a boolean).
    static constexpr int RecoveryRole = Qt::UserRole + 3;
    // The hub port alone, "HUB:PORT", whatever the cell shows beside it.
    static constexpr int HubPortRole = Qt::UserRole + 4;
    static constexpr qint64 disconnectedGraceSeconds = 60;

    struct Collaborators {
        core::Settings* settings = nullptr;
        restore::EventNotification* events = nullptr;
        core::Clock* clock = nullptr;
        // The hub port a Mac hangs on, "HUB:PORT", when the hubs know it (empty otherwise).
        std::function<QString(const AC2Device&)> hubPort;
    };

    explicit DeviceListModel(Collaborators collaborators, QObject* parent = nullptr);
    ~DeviceListModel() override;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

    // A new listing from Apple Configurator: rows are updated in place, new devices appended.
    void applyListing(const configurator::DeviceList& listed);
    // USB arrivals and removals, as USBManager posts them; other vendors' devices are ignored.
    void usbDevicesAdded(const QList<DeviceIOKitInfo>& devices);
    void usbDevicesRemoved(const QList<DeviceIOKitInfo>& devices);
    // Follows "deviceAdded" and "deviceRemoved" of the centre until this model goes.
    void observe(core::NotificationCenter& center);
    // The unattended bench's phase of each Mac's port joins its "Hub : Port" cell while the bench
    // runs ("1C3B4A01:3 · Queued"), the reason in the tooltip. `ports` outlives this model.
    void showPortPhases(const unattended::BenchPortModel& ports);

    // The restore workflow changed a device's status or progress.
    void deviceStatusChanged(const std::shared_ptr<AC2Device>& device);
    void deviceProgress(const std::shared_ptr<AC2Device>& device, float progress);
    // Drops the rows that have been off the bus, unlisted and idle for the grace period.
    void purgeDisconnected();

    std::shared_ptr<AC2Device> deviceAt(int row) const;
    int rowOf(const std::shared_ptr<AC2Device>& device) const;
    bool isConnected(int row) const;

  private:
    struct Row;
    struct Identity {
        std::uint64_t ecid = 0;
        QString serialNumber;
        std::int64_t location = 0;
    };

    int findRow(const Identity& identity, bool byLocation) const;
    int appendRow(std::shared_ptr<AC2Device> device);
    void changed(int row);
    void postEvent(const QString& event, const std::shared_ptr<AC2Device>& device);
    QVariant display(const Row& row, int column) const;
    QString hubPortOf(const AC2Device& device) const;
    const unattended::BenchPort* benchPortOf(const Row& row) const;
    void hubPortsChanged();

    Collaborators c_;
    QList<Row> rows_;
    std::vector<std::uint64_t> observers_;
    core::NotificationCenter* center_ = nullptr;
    const unattended::BenchPortModel* portPhases_ = nullptr;
    // Notifications may come from other threads; they are handed to the main loop with this.
    std::shared_ptr<int> lifetime_ = std::make_shared<int>(0);
};

// The selected devices for a spreadsheet: the header "UDID,ProductID,DeviceType,LocationID,
// SerialNumber", then one line per device.
QString devicesCSV(const QList<std::shared_ptr<AC2Device>>& devices);

}  // namespace app
