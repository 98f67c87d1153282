#pragma once

#include "records/RecordFilter.h"
#include "records/RestoreRecord.h"

#include <QList>
#include <QSqlDatabase>
#include <QString>

#include <optional>

namespace records {

// A record waiting in the outbox for the facility database, with its place in the queue.
struct WaitingRecord {
    qint64 sequence = 0;
    RestoreRecord record;
};

// The bench's own database: one SQLite file in WAL mode that the desktop application and
// tarvel-cli write at the same time. Each record goes in with one transaction that holds the
// write lock while it reads its station's last hash, so two writers never fork a chain. A
// store belongs to the thread that made it (a Qt SQL connection does).
class RecordStore {
  public:
    explicit RecordStore(const QString& path);
    ~RecordStore();
    RecordStore(const RecordStore&) = delete;
    RecordStore& operator=(const RecordStore&) = delete;

    bool isOpen() const { return open_; }
    QString path() const { return path_; }
    QString lastError() const { return error_; }

    // Fills in the record's place in its station's chain and its hash, and writes it, queued
    // for the facility when asked, in one transaction. Answers the record as written.
    std::optional<RestoreRecord> append(RestoreRecord record, bool queueForFacility);

    // Records that match, newest first; `limit` < 0 for all.
    QList<RestoreRecord> find(const RecordFilter& filter, int limit = -1);
    // Every record, each station's in chain order: what verify walks.
    QList<RestoreRecord> chainOrder();

    // The outbox, oldest first.
    QList<WaitingRecord> waiting(int limit);
    bool removeFromOutbox(const QList<qint64>& sequences);
    qint64 waitingCount();

    // SQLite's own check of the file: "ok" when sound.
    QString integrityCheck();

    // `$XDG_STATE_HOME/tarvel/records.sqlite` when that variable is set, the same file in the
    // real user's state folder otherwise.
    static QString defaultPath();

  private:
    bool open();
    bool fail(const QString& what, const QString& why);

    QString path_;
    QString connection_;
    QSqlDatabase database_;
    bool open_ = false;
    QString error_;
};

}  // namespace records
