#pragma once

#include "cli/CliContext.h"

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

    enum class Sequence { DFU, Restart, Recovery };
    // Runs a sequence to its end, showing its update texts as a status line; answers the last
    // completion value and lists the ports that made it stop.
    bool run(Sequence sequence, const AcronamePorts& ports);
    bool runPowerMode(std::int64_t mode, const AcronamePorts& ports);

    QStringList failedPorts() const;

  private:
    bool runUntilIdle(const std::function<void(ZMRAcronameManager&)>& start);

    std::shared_ptr<ZMRAcronameManager> manager_;
    std::shared_ptr<struct SessionState> state_;
};

}  // namespace cli
