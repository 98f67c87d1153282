#pragma once

#include "restore/RestoreSession.h"
#include "restore/RestoreSlots.h"

#include "core/Dispatch.h"

#include <QString>
#include <QStringList>

#include <memory>

namespace restore {

// Restores the devices of a batch one start after another on a queue of its own, pausing
// `timeBetweenProcesses` seconds between starts, and turns each device's progress, errors and
// completion into statuses, history records, event-script calls and sounds on its session.
// A real number in its shortest form that reads back the same, as "0.35" or "1.0".
QString realText(float value);

class RestoreQueue {
  public:
    explicit RestoreQueue(RestoreSession& session);
    ~RestoreQueue();

    // Queues the batch; batches never overlap.
    void submit(const DeviceList& devices);
    // The batch is being cancelled: a queue waiting for a free slot gives up.
    void wakeWaiting() { slots_.wake(); }

    // The pause between starts: the text as a 32-bit unsigned decimal, 3 when it is not one.
    static unsigned pauseBetweenStarts(const QString& text);
    // ECIDs as event scripts get them: upper-case hexadecimal joined with "," without blanks.
    static QString joinedEcids(const DeviceList& devices);

  private:
    struct Batch;

    void doRestore(const DeviceList& devices, const QString& batchId);
    void postRestoreStarted(const DeviceList& devices);
    void startDevice(const std::shared_ptr<Batch>& batch, const DevicePtr& device);
    void launch(const std::shared_ptr<Batch>& batch, const DevicePtr& device);
    void skipUnstarted(const std::shared_ptr<Batch>& batch, const DeviceList& unstarted);
    void cancelUnstarted(const std::shared_ptr<Batch>& batch, const DeviceList& unstarted);
    bool retryThroughHub(const std::shared_ptr<Batch>& batch, const DevicePtr& device,
                         const QString& reason);
    void removeCacheIfWanted();
    // Writes the outcome's durable record; before anything shows the outcome.
    void recordOutcome(const Batch& batch, const DevicePtr& device, bool failed,
                       const QString& message);
    void deviceCompleted(const std::shared_ptr<Batch>& batch, const DevicePtr& device,
                         bool failed, const QString& message, bool mayRetry = true);
    void settle(const std::shared_ptr<Batch>& batch, int devices);
    void postEvent(const QString& event, bool status, const QVariantMap& info);
    void setProgressMessage(const QString& message);

    RestoreSession& session_;
    const RestoreSession::Collaborators& c_;
    // Completions queued to the main thread check this before touching a queue that may be gone.
    std::shared_ptr<int> lifetime_ = std::make_shared<int>(0);
    RestoreSlots slots_;
    dispatch::SerialQueue queue_;
};

}  // namespace restore
