#include "cli/SimulatorLoss.h"

#include "core/SimulatorConnection.h"

#include <QObject>

#include <cstdio>
#include <utility>

namespace cli {

SimulatorLoss::SimulatorLoss(const std::optional<QString>& socket, std::function<void()> lost) {
    if (!socket)
        return;
    connection_ = std::make_unique<core::SimulatorConnection>(*socket);
    // A subscription to no topic: an open connection that carries nothing but its own end.
    if (!connection_->subscribe({})) {
        connection_.reset();
        return;
    }
    QObject::connect(connection_.get(), &core::SimulatorConnection::disconnected, connection_.get(),
                     [lost = std::move(lost), called = false]() mutable {
                         if (std::exchange(called, true))
                             return;
                         lost();
                     });
}

SimulatorLoss::~SimulatorLoss() = default;

void reportSimulatorLost(const char* command, const QString& consequence) {
    std::fprintf(stderr, "tarvel-cli: %s: the simulator closed its socket; %s\n", command,
                 qPrintable(consequence));
    std::fflush(stderr);
}

}  // namespace cli
