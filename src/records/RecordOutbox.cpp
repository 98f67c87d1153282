#include "records/RecordOutbox.h"

#include "records/FacilityDatabase.h"
#include "records/RecordStore.h"

#include "core/Log.h"

#include <QDeadlineTimer>

#include <condition_variable>
#include <mutex>

namespace records {

// Touched on the outbox's thread only, except the idle flag under its mutex.
struct RecordOutbox::Worker {
    std::unique_ptr<RecordStore> store;
    std::unique_ptr<FacilityDatabase> facility;
    QTimer retry;
    int retryMs = 0;
    QString lastError;

    std::mutex mutex;
    std::condition_variable settled;
    int pending = 0;  // wakes asked for and not yet served
};

ForwardResult RecordOutbox::forwardWaiting(RecordStore& store, FacilityDatabase& facility,
                                           int batchSize) {
    ForwardResult result;
    for (;;) {
        const QList<WaitingRecord> batch = store.waiting(batchSize);
        if (batch.isEmpty())
            break;
        QList<RestoreRecord> records;
        QList<qint64> sequences;
        for (const WaitingRecord& waiting : batch) {
            records.append(waiting.record);
            sequences.append(waiting.sequence);
        }
        if (!facility.insert(records)) {
            result.reached = false;
            result.error = facility.lastError();
            break;
        }
        // Should this fail, the records are sent again and the facility keeps its copy.
        if (!store.removeFromOutbox(sequences)) {
            result.error = store.lastError();
            break;
        }
        result.sent += records.size();
    }
    result.waiting = store.waitingCount();
    return result;
}

RecordOutbox::RecordOutbox(const QString& storePath, const QString& facilityURL, Options options)
    : storePath_(storePath),
      facilityURL_(facilityURL),
      options_(options),
      worker_(std::make_unique<Worker>()) {
    thread_.setObjectName(QStringLiteral("records outbox"));
    context_ = new QObject;
    context_->moveToThread(&thread_);
    worker_->retry.setSingleShot(true);
    worker_->retry.moveToThread(&thread_);
    QObject::connect(&worker_->retry, &QTimer::timeout, context_, [this] { pass(); });
    thread_.start();
    wake();
}

RecordOutbox::~RecordOutbox() {
    // The connections belong to the thread; they are closed there.
    QMetaObject::invokeMethod(
        context_,
        [this] {
            worker_->retry.stop();
            worker_->facility.reset();
            worker_->store.reset();
        },
        Qt::BlockingQueuedConnection);
    thread_.quit();
    thread_.wait();
    delete context_;
}

void RecordOutbox::wake() {
    {
        std::lock_guard lock(worker_->mutex);
        ++worker_->pending;
    }
    QMetaObject::invokeMethod(context_, [this] { pass(); }, Qt::QueuedConnection);
}

bool RecordOutbox::waitUntilIdle(int timeoutMs) {
    std::unique_lock lock(worker_->mutex);
    return worker_->settled.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                                     [this] { return worker_->pending == 0; });
}

void RecordOutbox::pass() {
    Worker& w = *worker_;
    int served = 0;
    {
        std::lock_guard lock(w.mutex);
        served = w.pending;
    }
    w.retry.stop();
    if (!w.store)
        w.store = std::make_unique<RecordStore>(storePath_);
    if (!w.facility)
        w.facility = std::make_unique<FacilityDatabase>(facilityURL_, options_.connectTimeoutSeconds);
    const ForwardResult result = forwardWaiting(*w.store, *w.facility);
    if (result.error.isEmpty()) {
        w.retryMs = 0;
        w.lastError.clear();
    } else {
        // One log line per change of trouble, not one per retry.
        if (result.error != w.lastError)
            ZMRLogLevel1(QStringLiteral("Records wait for the facility database: %1")
                             .arg(result.error));
        w.lastError = result.error;
        w.retryMs = w.retryMs == 0 ? options_.firstRetryMs
                                   : std::min(w.retryMs * 2, options_.longestRetryMs);
        w.retry.start(w.retryMs);
    }
    std::lock_guard lock(w.mutex);
    w.pending -= served;
    w.settled.notify_all();
}

}  // namespace records
