#include "records/RecordSchema.h"

#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>

namespace records {

QStringList RecordSchema::step(int from) {
    switch (from) {
        case 0:
            // Version 1: the records and each station's chain. `sequence` is the order records
            // were written on this machine.
            return {R"(CREATE TABLE records (
                sequence INTEGER PRIMARY KEY AUTOINCREMENT,
                id TEXT NOT NULL UNIQUE,
                batch_id TEXT NOT NULL, ecid TEXT NOT NULL, serial_number TEXT NOT NULL,
                model_identifier TEXT NOT NULL, device_name TEXT NOT NULL,
                hub_serial TEXT NOT NULL, hub_port INTEGER NOT NULL, location TEXT NOT NULL,
                station TEXT NOT NULL, operator TEXT NOT NULL,
                started_at TEXT NOT NULL, ended_at TEXT NOT NULL, duration_ms INTEGER NOT NULL,
                outcome TEXT NOT NULL, exit_status INTEGER, last_error TEXT NOT NULL,
                firmware TEXT NOT NULL, firmware_sha256 TEXT NOT NULL,
                tarvel_version TEXT NOT NULL,
                station_sequence INTEGER NOT NULL, previous_hash TEXT NOT NULL,
                hash TEXT NOT NULL,
                UNIQUE (station, station_sequence)))"};
        case 1:
            // Version 2: the outbox of a facility database, and the look-ups a bench answers
            // a customer with.
            return {
                "CREATE TABLE outbox (sequence INTEGER PRIMARY KEY "
                "REFERENCES records(sequence))",
                "CREATE INDEX records_serial ON records (serial_number)",
                "CREATE INDEX records_ecid ON records (ecid)",
                "CREATE INDEX records_ended ON records (ended_at)",
                "CREATE INDEX records_batch ON records (batch_id)"};
        case 2:
            // Version 3: which engine restored the Mac and which macOS it put on it; the records
            // written before stay empty there, as nobody noted either.
            return {"ALTER TABLE records ADD COLUMN engine TEXT NOT NULL DEFAULT ''",
                    "ALTER TABLE records ADD COLUMN firmware_version TEXT NOT NULL DEFAULT ''"};
        default:
            return {};
    }
}

int RecordSchema::version(QSqlDatabase& database) {
    QSqlQuery query(database);
    return query.exec("PRAGMA user_version") && query.next() ? query.value(0).toInt() : -1;
}

bool RecordSchema::migrate(QSqlDatabase& database, QString* error) {
    QSqlQuery query(database);
    // Two programs opening a fresh database at once: the write lock makes one of them migrate
    // and the other find it done.
    if (!query.exec("BEGIN IMMEDIATE")) {
        *error = query.lastError().text();
        return false;
    }
    int at = version(database);
    if (at > currentVersion) {
        query.exec("ROLLBACK");
        *error = QStringLiteral(
                     "the records database is from a newer Tarvel (schema %1; this one "
                     "knows %2)")
                     .arg(at)
                     .arg(currentVersion);
        return false;
    }
    for (; at < currentVersion; ++at) {
        for (const QString& statement : step(at))
            if (!query.exec(statement)) {
                *error =
                    QStringLiteral("schema step %1: %2").arg(at + 1).arg(query.lastError().text());
                query.exec("ROLLBACK");
                return false;
            }
        query.exec(QStringLiteral("PRAGMA user_version = %1").arg(at + 1));
    }
    if (!query.exec("COMMIT")) {
        *error = query.lastError().text();
        return false;
    }
    return true;
}

}  // namespace records
