#pragma once

#include <QObject>
#include <QString>
#include <QThread>
#include <QTimer>

#include <memory>

namespace records {

class FacilityDatabase;
class RecordStore;

// What one pass over the outbox did.
struct ForwardResult {
    qint64 sent = 0;
    qint64 waiting = 0;  // still in the outbox afterwards
    bool reached = true;
    QString error;
};

// Sends what waits in the bench database's outbox to the facility database, oldest first, on a
// thread of its own so that a slow or absent server never holds up a restore. A record leaves
// the outbox only once the facility has committed it; when the server cannot be reached the
// outbox waits and tries again later, backing off up to a minute, and at once when woken.
class RecordOutbox {
  public:
    struct Options {
        int firstRetryMs = 2000;
        int longestRetryMs = 60000;
        int connectTimeoutSeconds = 5;
    };

    RecordOutbox(const QString& storePath, const QString& facilityURL, Options options);
    RecordOutbox(const QString& storePath, const QString& facilityURL)
        : RecordOutbox(storePath, facilityURL, Options{}) {}
    ~RecordOutbox();

    // Asks for a pass soon; any thread.
    void wake();
    // Waits until a pass has ended with the outbox empty or the server unreachable (tests,
    // and a program about to quit). False when `timeoutMs` ran out first.
    bool waitUntilIdle(int timeoutMs);

    // One pass, on the caller's thread: everything that waits, in batches, in order.
    static ForwardResult forwardWaiting(RecordStore& store, FacilityDatabase& facility,
                                        int batchSize = 500);

  private:
    struct Worker;
    void pass();

    QString storePath_;
    QString facilityURL_;
    Options options_;
    QThread thread_;
    QObject* context_ = nullptr;  // lives on thread_
    std::unique_ptr<Worker> worker_;
};

}  // namespace records
