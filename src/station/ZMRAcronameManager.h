#pragma once

#include "hubs/AcronameHub.h"
#include "hubs/AcronamePort.h"
#include "hubs/DriverConsole.h"
#include "station/PortProgress.h"
#include "hubs/stem/Backend.h"

#include "core/Dispatch.h"

#include <QList>
#include <QString>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

class AC2Device;
namespace core {
class Alerts;
class Clock;
class NotificationCenter;
class Settings;
class Sounds;
}  // namespace core

using AcronamePorts = std::vector<std::shared_ptr<AcronamePort>>;
using AC2Devices = QList<std::shared_ptr<AC2Device>>;

// Everything the manager reaches outside itself. The shared manager is built from the process's
// defaults; tests build managers of their own with fakes.
struct ZMRAcronameManagerEnvironment {
    std::shared_ptr<stem::Backend> backend;
    core::Settings* settings;
    core::Clock* clock;
    core::NotificationCenter* notifications;
    core::Sounds* sounds;
    core::Alerts* alerts;
    std::function<void(dispatch::Task)> runInBackground;
    std::function<void(dispatch::Task)> runOnMain;
    // Runs a sequence's per-hub lanes at once and returns when all have finished.
    std::function<void(std::vector<dispatch::Task>)> runLanes = dispatch::concurrently;
    // Whether to work hubs in parallel lanes, overriding the acronameParallelHubs setting.
    std::optional<bool> parallelHubs;
    // Lists the devices Apple Configurator sees; calls back once, on any thread.
    std::function<void(std::function<void(AC2Devices)>)> listDevices;
    // USB look-ups: the hub a device location hangs on, and a vendor's serial number there.
    std::function<std::uint64_t(std::uint64_t)> hubAddress;
    std::function<std::optional<QString>(std::uint64_t, std::int64_t)> vendorSerialNumber;
    DriverConsole console;
    // The manager's log lines (the shared log by default).
    std::function<void(const QString&)> log;
    // Asked before each port a sequence begins and before each pause over all ports: true stops
    // the sequence there, as a failure would, without counting as one. Optional.
    std::function<bool()> stopRequested;
    // Told which port made a sequence stop and what it was asked to do; optional.
    std::function<void(const AcronamePort&, const QString& command)> portFailed;
    // Whether a sequence that failed rebuilds the hub list. A bench whose ports run sequences of
    // their own at once turns it off: a rebuild disconnects the hubs under the other ports.
    bool refreshAfterFailure = true;

    static ZMRAcronameManagerEnvironment processDefaults(std::optional<QString> simulatorSocket);
};

// The one object through which the rest of the system acts on hubs and the Macs on their ports.
class ZMRAcronameManager : public std::enable_shared_from_this<ZMRAcronameManager> {
public:
    using Update = std::function<void(const QString&)>;
    using Completion = std::function<void(bool)>;

    explicit ZMRAcronameManager(ZMRAcronameManagerEnvironment environment);

    // Built on first use from the process defaults (the simulator when TARVEL_SIM names one).
    static std::shared_ptr<ZMRAcronameManager> sharedManager();

    void refreshAcronameDevices(std::function<void(AC2Devices)> completion);
    void disconnectAllHubs();

    std::vector<std::shared_ptr<AcronameHub>> hubs() const;
    void setHubs(std::vector<std::shared_ptr<AcronameHub>> hubs);
    AC2Devices ac2Devices() const;
    void setAc2Devices(AC2Devices devices);
    // Whether sequences and the refresh work every hub at once (read at the start of each).
    bool parallelHubs() const;

    // Power mode 0 is power delivery, 1 standard downstream, 2 charging downstream; anything
    // else power-cycles the ports without changing their mode. The optional observer is told,
    // on the sequence's worker, which port and step is worked and how each port ended.
    void setPowerMode(std::int64_t mode, AcronamePorts ports, Completion completion,
                      PortObserver observer = {});
    void dfuModeForAcronamePorts(AcronamePorts ports, Update update, Completion completion,
                                 PortObserver observer = {});
    void restartForAcronamePorts(AcronamePorts ports, Update update, Completion completion,
                                 PortObserver observer = {});
    void recoveryForAcronamePorts(AcronamePorts ports, Update update, Completion completion,
                                  PortObserver observer = {});

  private:
    struct Sequence;
    using SequenceStep = void (Sequence::*)(const AcronamePorts&, const Update&, const Completion&) const;

    // Hands the rest of a sequence to a background worker, with the hubs of its ports kept alive.
    void runSequence(AcronamePorts ports, Update update, Completion completion, SequenceStep step,
                     PortObserver observer);

    // Connects every hub, one after another or all at once; answers which connected.
    std::vector<bool> connectHubs(const std::vector<std::shared_ptr<AcronameHub>>& hubs);
    void listAndMatchDevices(
        std::vector<std::pair<std::shared_ptr<AcronameHub>, AC2Devices>> hubTable,
        std::function<void(AC2Devices)> completion);
    void logHubSerialOfDevice(const AC2Device& device) const;

    ZMRAcronameManagerEnvironment environment_;
    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<AcronameHub>> hubs_;
    AC2Devices ac2Devices_;
};
