#pragma once

#include "restore/DeviceRoster.h"

#include <QAbstractTableModel>
#include <QHash>

#include <functional>
#include <memory>

namespace core {
class Clock;
}
namespace unattended {
struct BenchPort;
class BenchPortModel;
}  // namespace unattended

namespace app {

// The device table's rows: one per Mac of the bench's roster (Apple Configurator's listing merged
// with what the USB registry reports), with its restore's status and progress, and the hub port
// it hangs on. Widget-free; the device table binds to it.
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

    struct Collaborators {
        core::Clock* clock = nullptr;
        // The hub port a Mac hangs on, "HUB:PORT", when the hubs know it (empty otherwise).
        std::function<QString(const AC2Device&)> hubPort;
    };

    explicit DeviceListModel(Collaborators collaborators, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

    // The Macs behind the rows, row for row: listings and USB arrivals go there.
    restore::DeviceRoster& roster() { return roster_; }
    const restore::DeviceRoster& roster() const { return roster_; }
    std::shared_ptr<AC2Device> deviceAt(int row) const { return roster_.deviceAt(row); }

    // The unattended bench's phase of each Mac's port joins its "Hub : Port" cell while the bench
    // runs ("1C3B4A01:3 · Queued"), the reason in the tooltip. `ports` outlives this model.
    void showPortPhases(const unattended::BenchPortModel& ports);

    // The restore workflow changed a device's status or progress.
    void deviceStatusChanged(const std::shared_ptr<AC2Device>& device);
    void deviceProgress(const std::shared_ptr<AC2Device>& device, float progress);

  private:
    void followRoster();
    void changed(int row);
    float progressOf(const AC2Device& device) const;
    QVariant display(int row, int column) const;
    QVariant toolTip(int row, int column) const;
    QVariant sortKey(int row, int column) const;
    QString hubPortOf(const AC2Device& device) const;
    const unattended::BenchPort* benchPortOf(int row) const;
    void hubPortsChanged();

    std::function<QString(const AC2Device&)> hubPort_;
    restore::DeviceRoster roster_;
    QHash<const AC2Device*, float> progress_;
    const unattended::BenchPortModel* portPhases_ = nullptr;
};

}  // namespace app
