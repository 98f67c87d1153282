#pragma once

#include "unattended/BenchPortModel.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <memory>

namespace metrics {
class MetricsRegistry;
class MetricsServer;
}  // namespace metrics
namespace restore {
class RestoreSession;
}

namespace unattended {

class ManagerPortDriver;
class SessionRestorer;
class UnattendedBench;

// The desktop's "Unattended Bench" switch, without a widget: turning it on builds a bench over
// every usable hub port that restores through the application's own restore session (so its
// outcomes join the history), and serves metrics when metricsListenAddress names an address;
// turning it off stops the bench, cancelling what runs. The port states are in model().
class BenchController final : public QObject {
    Q_OBJECT
  public:
    explicit BenchController(restore::RestoreSession& session, QObject* parent = nullptr);
    ~BenchController() override;

    bool isOn() const { return bench_ != nullptr; }
    void setOn(bool on, bool restore, bool recoveryAfter);
    BenchPortModel& model() { return model_; }

  signals:
    void onChanged(bool on);
    // The day so far, for a line under the switch.
    void summaryChanged(const QString& text);
    void problem(const QString& text);

  private:
    void start(bool restore, bool recoveryAfter);
    void teardown();
    void serveMetrics();
    double now() const;

    restore::RestoreSession& session_;
    QElapsedTimer clock_;
    BenchPortModel model_;
    QTimer refresh_;
    std::unique_ptr<ManagerPortDriver> driver_;
    std::unique_ptr<SessionRestorer> restorer_;
    std::unique_ptr<UnattendedBench> bench_;
    std::unique_ptr<metrics::MetricsRegistry> registry_;
    std::unique_ptr<metrics::MetricsServer> server_;
};

}  // namespace unattended
