#pragma once

#include "configurator/DeviceListing.h"

#include "core/Alerts.h"

#include <QString>
#include <QStringList>
#include <QVariant>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace restore {

// The program that lists Macs and restores them, as the restore queue, the single restore and
// the listings ask for it: Apple Configurator's cfgutil where it exists, idevicerestore on Linux.
// Everything around a restore (the queue, its pauses, history, event script, records, sounds)
// stays the same whichever engine runs. Main thread, except where a method says otherwise.
class RestoreEngine {
  public:
    using DevicePtr = std::shared_ptr<AC2Device>;
    using Listing = std::function<void(const configurator::DeviceList& devices)>;
    // The engine's step and its progress (0 to 1; -1 without a value).
    using OutputBlock =
        std::function<void(const DevicePtr& device, const QVariant& step, float progress)>;
    // What the engine wrote on its standard error, chunk by chunk.
    using ErrorBlock = std::function<void(const DevicePtr& device, const QString& chunk)>;
    using CompletedBlock =
        std::function<void(const DevicePtr& device, bool failed, const QString& message)>;

    virtual ~RestoreEngine() = default;

    // "cfgutil" or "idevicerestore", as the restoreEngine setting names it.
    virtual QString name() const = 0;
    // The engine's own version line, empty when it is not known.
    virtual QString version() const = 0;
    // Whether the engine's program is there at all; the alert says what to do when it is not.
    virtual bool isInstalled() const = 0;
    virtual core::Alert notInstalledAlert() const = 0;
    // A restore needs firmware the engine cannot find: it has told the user why, and nothing may
    // start. Asked before a batch is queued.
    virtual bool refusesFirmware() = 0;
    // The firmware file or folder a restore is given now; empty when the engine picks it.
    virtual QString firmwarePath() const = 0;

    // Every Mac the engine can restore now, and the others it sees; the callback comes on the
    // main thread, or at once with nothing when the engine cannot list.
    virtual void listDevices(Listing listing) = 0;
    // Any thread. Returns at once; the restore starts, reports and completes on the main thread.
    virtual void restore(const DevicePtr& device, OutputBlock output, ErrorBlock error,
                         CompletedBlock completed) = 0;
    // Marks the device cancelled and stops its restore, if one runs or is on its way.
    virtual void cancel(const DevicePtr& device) = 0;

    // Whether a failure with this reason is the engine losing the Mac on its way (it did not
    // reconnect, did not enter restore mode, vanished), which putting the Mac back into DFU mode
    // and starting again can mend; wrong firmware or a refused signature cannot be.
    virtual bool isTransient(const QString& reason) const {
        Q_UNUSED(reason);
        return false;
    }

    // The engine's last error lines and exit status of the last restore of an ECID that ended.
    virtual QStringList errorLines(std::uint64_t ecid) const = 0;
    virtual std::optional<int> exitStatus(std::uint64_t ecid) const = 0;
    // The macOS version the last restore of an ECID put on it, "15.3.1 (24D70)"; empty when the
    // engine does not say (cfgutil never does).
    virtual QString firmwareVersion(std::uint64_t ecid) const {
        Q_UNUSED(ecid);
        return {};
    }
};

}  // namespace restore
