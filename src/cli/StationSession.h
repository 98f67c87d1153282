#pragma once

#include "cli/CliContext.h"
#include "cli/ProgressDisplay.h"

#include "station/PortRun.h"
#include "station/PortVerdict.h"
#include "station/ZMRAcronameManager.h"

#include <QString>
#include <QStringList>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace cli {

// One terminal session with the station: a manager of its own over the selected hardware or
// simulator, refreshed once, with blocking forms of the manager's asynchronous operations.
class StationSession {
  public:
    using Sequence = station::PortRun::Sequence;

    explicit StationSession(const CliContext& context);
    // Disconnects the hubs: a connected hub and its driver hold each other.
    ~StationSession();

    // Rebuilds the hub list; answers the per-port entries once the device listing is in.
    AC2Devices refresh();

    // The ports named "HUB:PORT" (HUB as the hub list prints it), or every usable port. Answers
    // nothing and explains why in `error` when a name matches no port.
    std::optional<AcronamePorts> selectPorts(const AC2Devices& entries, bool all,
                                             const std::vector<std::string>& names,
                                             QString& error) const;

    // Enables every listed port that reads disabled, so that the Mac behind it, unknown until
    // then, can be worked; answers the names of the ports that were disabled, which the verdict
    // of the run that follows names so.
    QStringList enableDisabledPorts(const AcronamePorts& ports);

    // Runs a sequence to its end, showing its work on `display` (left open for what follows);
    // answers what it did to each port, each port read again after it, and whether it succeeded.
    station::PortVerdict run(Sequence sequence, const AcronamePorts& ports,
                             ProgressDisplay& display);
    station::PortVerdict runPowerMode(std::int64_t mode, const AcronamePorts& ports,
                                      ProgressDisplay& display);

  private:
    station::PortVerdict runToEnd(station::PortRun& run, ProgressDisplay& display);

    std::shared_ptr<ZMRAcronameManager> manager_;
    std::shared_ptr<struct SessionState> state_;
    QStringList wereDisabled_;
};

}  // namespace cli
