#include "records/RecordStore.h"

#include "records/RecordRow.h"
#include "records/RecordSchema.h"

#include "core/StateFolder.h"

#include <QDir>
#include <QFileInfo>
#include <QSqlError>
#include <QSqlQuery>
#include <QUuid>

namespace records {
namespace {

// Long enough for the other writer's transaction, which is one record, a few times over.
constexpr int busyTimeoutMs = 10000;

}  // namespace

QString RecordStore::defaultPath() {
    return core::stateFolder() + QStringLiteral("/records.sqlite");
}

RecordStore::RecordStore(const QString& path)
    : path_(path),
      connection_(QStringLiteral("tarvel-records-") + QUuid::createUuid().toString(QUuid::Id128)) {
    open_ = open();
}

RecordStore::~RecordStore() {
    database_.close();
    database_ = QSqlDatabase();
    QSqlDatabase::removeDatabase(connection_);
}

bool RecordStore::fail(const QString& what, const QString& why) {
    error_ = QStringLiteral("%1 (%2): %3").arg(what, path_, why);
    return false;
}

bool RecordStore::open() {
    if (!QSqlDatabase::isDriverAvailable("QSQLITE"))
        return fail("cannot open the records database", "Qt's SQLite driver is not installed");
    QDir().mkpath(QFileInfo(path_).absolutePath());
    database_ = QSqlDatabase::addDatabase("QSQLITE", connection_);
    database_.setDatabaseName(path_);
    database_.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=%1").arg(busyTimeoutMs));
    if (!database_.open())
        return fail("cannot open the records database", database_.lastError().text());
    QSqlQuery query(database_);
    // WAL lets readers and the other program's writer go on while one writes. In WAL mode
    // NORMAL commits survive the process dying at any moment (the write is in the kernel before
    // the outcome is shown) and never corrupt the file; only a power cut can take the last few
    // commits back. FULL would add an fsync to every outcome, up to 10 ms on the main loop.
    for (const char* pragma : {"PRAGMA journal_mode = WAL", "PRAGMA synchronous = NORMAL",
                               "PRAGMA foreign_keys = ON"})
        if (!query.exec(QLatin1String(pragma)))
            return fail("cannot set up the records database", query.lastError().text());
    QString why;
    if (!RecordSchema::migrate(database_, &why))
        return fail("cannot update the records database", why);
    return true;
}

std::optional<RestoreRecord> RecordStore::append(RestoreRecord record, bool queueForFacility) {
    if (!open_)
        return std::nullopt;
    QSqlQuery query(database_);
    const auto abandon = [&](const QString& why) -> std::optional<RestoreRecord> {
        fail("cannot write a record", why);
        query.exec("ROLLBACK");
        return std::nullopt;
    };
    if (!query.exec("BEGIN IMMEDIATE"))
        return abandon(query.lastError().text());
    query.prepare("SELECT station_sequence, hash FROM records WHERE station = ? "
                  "ORDER BY station_sequence DESC LIMIT 1");
    query.addBindValue(record.station);
    if (!query.exec())
        return abandon(query.lastError().text());
    record.stationSequence = query.next() ? query.value(0).toLongLong() + 1 : 1;
    record.previousHash = query.isValid() ? query.value(1).toString() : QString();
    record.hash = record.computeHash();

    query.prepare("INSERT INTO records (" + RecordRow::columns() + ") VALUES (" +
                  RecordRow::placeholders() + ")");
    RecordRow::bind(query, record);
    if (!query.exec())
        return abandon(query.lastError().text());
    if (queueForFacility &&
        !query.exec("INSERT INTO outbox (sequence) VALUES (last_insert_rowid())"))
        return abandon(query.lastError().text());
    if (!query.exec("COMMIT"))
        return abandon(query.lastError().text());
    return record;
}

QList<RestoreRecord> RecordStore::find(const RecordFilter& filter, int limit) {
    QList<RestoreRecord> found;
    if (!open_)
        return found;
    QSqlQuery query(database_);
    query.setForwardOnly(true);
    query.prepare("SELECT " + RecordRow::columns() + " FROM records" + filter.whereClause() +
                  " ORDER BY ended_at DESC, sequence DESC LIMIT " + QString::number(limit));
    for (const QVariant& value : filter.values()) query.addBindValue(value);
    if (!query.exec()) {
        fail("cannot read the records", query.lastError().text());
        return found;
    }
    while (query.next()) found.append(RecordRow::read(query));
    return found;
}

QList<RestoreRecord> RecordStore::chainOrder() {
    QList<RestoreRecord> all;
    if (!open_)
        return all;
    QSqlQuery query(database_);
    query.setForwardOnly(true);
    if (!query.exec("SELECT " + RecordRow::columns() +
                    " FROM records ORDER BY station, station_sequence")) {
        fail("cannot read the records", query.lastError().text());
        return all;
    }
    while (query.next()) all.append(RecordRow::read(query));
    return all;
}

QList<WaitingRecord> RecordStore::waiting(int limit) {
    QList<WaitingRecord> queued;
    if (!open_)
        return queued;
    QSqlQuery query(database_);
    query.setForwardOnly(true);
    query.prepare("SELECT records.sequence, " + RecordRow::columns() +
                  " FROM outbox JOIN records ON records.sequence = outbox.sequence "
                  "ORDER BY outbox.sequence LIMIT ?");
    query.addBindValue(limit);
    if (!query.exec()) {
        fail("cannot read the outbox", query.lastError().text());
        return queued;
    }
    while (query.next()) queued.append({query.value(0).toLongLong(), RecordRow::read(query, 1)});
    return queued;
}

bool RecordStore::removeFromOutbox(const QList<qint64>& sequences) {
    if (!open_)
        return false;
    QSqlQuery query(database_);
    if (!query.exec("BEGIN IMMEDIATE"))
        return fail("cannot update the outbox", query.lastError().text());
    query.prepare("DELETE FROM outbox WHERE sequence = ?");
    for (const qint64 sequence : sequences) {
        query.addBindValue(sequence);
        if (!query.exec()) {
            fail("cannot update the outbox", query.lastError().text());
            QSqlQuery(database_).exec("ROLLBACK");
            return false;
        }
    }
    if (!query.exec("COMMIT"))
        return fail("cannot update the outbox", query.lastError().text());
    return true;
}

qint64 RecordStore::waitingCount() {
    if (!open_)
        return 0;
    QSqlQuery query(database_);
    return query.exec("SELECT count(*) FROM outbox") && query.next() ? query.value(0).toLongLong()
                                                                      : 0;
}

QString RecordStore::integrityCheck() {
    if (!open_)
        return error_;
    QSqlQuery query(database_);
    if (!query.exec("PRAGMA integrity_check"))
        return query.lastError().text();
    QStringList lines;
    while (query.next()) lines << query.value(0).toString();
    return lines.join('\n');
}

}  // namespace records
