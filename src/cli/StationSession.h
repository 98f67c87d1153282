#pragma once

#include "cli/CliContext.h"
#include "cli/PortVerdict.h"
#include "cli/ProgressDisplay.h"

#include "hubs/ZMRAcronameManager.h"

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
    // then, can be worked; answers the names of the ports that were disabled.
    QStringList enableDisabledPorts(const AcronamePorts& ports);
    // Reads each named port ("HUB:PORT") again after a run; one that reads disabled is enabled
    // once more. Answers the ports that stay disabled.
    QStringList portsLeftDisabled(const QStringList& names);

    enum class Sequence { DFU, Restart, Recovery };
    // Runs a sequence to its end, showing its work on `display` (left open for what follows);
    // answers what it did to each port and whether it succeeded.
    PortVerdict run(Sequence sequence, const AcronamePorts& ports, ProgressDisplay& display);
    PortVerdict runPowerMode(std::int64_t mode, const AcronamePorts& ports,
                             ProgressDisplay& display);

  private:
    std::shared_ptr<AcronameHub> hubNamed(const QString& name) const;
    PortVerdict runUntilIdle(
        const AcronamePorts& ports, std::optional<PortProgress::Step> message,
        ProgressDisplay& display,
        const std::function<void(ZMRAcronameManager&, const PortObserver&,
                                 const ZMRAcronameManager::Completion&)>& start);

    std::shared_ptr<ZMRAcronameManager> manager_;
    std::shared_ptr<struct SessionState> state_;
};

}  // namespace cli
