#pragma once

#include "unattended/BenchPortModel.h"

#include <QObject>
#include <QTimer>

#include <memory>

namespace restore {
class RestoreSession;
}

namespace unattended {

class BenchAssembly;

// The desktop's "Unattended Bench" switch, without a widget: turning it on builds a bench over
// every usable hub port that restores through the application's own restore session (so its
// outcomes join the history), and serves metrics when metricsListenAddress names an address;
// turning it off stops the bench, cancelling what runs. The port states are in model().
class BenchController final : public QObject {
    Q_OBJECT
  public:
    explicit BenchController(restore::RestoreSession& session, QObject* parent = nullptr);
    ~BenchController() override;

    bool isOn() const { return assembly_ != nullptr; }
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

    restore::RestoreSession& session_;
    BenchPortModel model_;
    QTimer refresh_;
    std::unique_ptr<BenchAssembly> assembly_;
};

}  // namespace unattended
