#pragma once

#include "unattended/UnattendedBench.h"

#include "hubs/DriverConsole.h"
#include "metrics/MetricsRegistry.h"
#include "metrics/MetricsServer.h"

#include <QElapsedTimer>
#include <QStringList>

#include <memory>

namespace restore {
class RestoreSession;
}

namespace unattended {

class ManagerPortDriver;
class SessionRestorer;

// The unattended bench over the station's hubs and this process's USB registry, restoring
// through a restore session (so every outcome joins its history), with the metrics it feeds.
// `tarvel-cli auto` and the desktop's switch each build one; they differ only in what they show.
// Its clock runs in station seconds: a simulator running faster than life runs the bench with it.
class BenchAssembly {
  public:
    // What the technician chose; how many restores at once and the pause between their starts
    // come from the settings.
    struct Choices {
        bool restore = false;
        bool recoveryAfter = false;  // taken only with restore
        QStringList ports;           // empty: every usable port
    };

    BenchAssembly(const Choices& choices, restore::RestoreSession& session,
                  DriverConsole console = DriverConsole::standard());
    ~BenchAssembly();

    UnattendedBench& bench() { return *bench_; }
    // Station seconds since the assembly was built.
    double now() const;
    // Serves the bench's metrics; answers the port bound, or 0 with the reason in `error`.
    quint16 serveMetrics(const metrics::ListenAddress& where, QString& error);
    // Looks for the hubs; the bench starts on their usable ports once they are found.
    void start();

  private:
    QElapsedTimer clock_;
    double speed_;
    std::unique_ptr<ManagerPortDriver> driver_;
    std::unique_ptr<SessionRestorer> restorer_;
    std::unique_ptr<UnattendedBench> bench_;
    metrics::MetricsRegistry registry_;
    std::unique_ptr<metrics::MetricsServer> server_;
};

}  // namespace unattended
