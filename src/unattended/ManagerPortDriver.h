#pragma once

#include "unattended/PortDriver.h"

#include "station/PortRun.h"
#include "station/ZMRAcronameManager.h"

#include <QHash>
#include <QThreadPool>

#include <atomic>
#include <memory>

namespace unattended {

// The bench's hubs through the port sequences: one refresh finds the usable ports (enabling any
// that read disabled, whose Macs would stay unknown otherwise), then each port's DFU and
// recovery sequences run on a thread of their own, with the manager's pauses, so a port never
// waits for another. A sequence that fails leaves the hub list alone: rebuilding it would
// disconnect the hubs under the other ports' sequences; the bench refreshes only between
// sequences, when a hub has been plugged in.
class ManagerPortDriver final : public PortDriver {
    Q_OBJECT
  public:
    explicit ManagerPortDriver(ZMRAcronameManagerEnvironment environment,
                               QObject* parent = nullptr);
    // Waits for the sequences under way, then lets go of the hubs.
    ~ManagerPortDriver() override;

    // Refreshes the hubs; ready() follows.
    void refresh() override;

    QStringList ports() const override { return names_; }
    void dfu(const QString& port) override;
    void recovery(const QString& port) override;
    void stop() override { stopRequested_->store(true); }

  private:
    void run(const QString& port, station::PortRun::Sequence sequence);
    void refreshed(const AcronamePorts& ports);

    ZMRAcronameManagerEnvironment environment_;
    std::shared_ptr<ZMRAcronameManager> manager_;
    QHash<QString, std::shared_ptr<AcronamePort>> ports_;
    QStringList names_;
    std::shared_ptr<std::atomic<bool>> stopRequested_ = std::make_shared<std::atomic<bool>>(false);
    // Sequences sleep through their pauses; each needs a thread of its own.
    QThreadPool pool_;
    // Work handed back to the main thread checks this before touching a driver that may be gone.
    std::shared_ptr<int> lifetime_ = std::make_shared<int>(0);
};

}  // namespace unattended
