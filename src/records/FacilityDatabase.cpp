#include "records/FacilityDatabase.h"

#include "records/RecordRow.h"

#include <QSqlError>
#include <QSqlQuery>
#include <QUrl>
#include <QUrlQuery>
#include <QUuid>

namespace records {
namespace {

const char* const createTable = R"(CREATE TABLE IF NOT EXISTS tarvel_records (
    id TEXT PRIMARY KEY,
    batch_id TEXT NOT NULL, ecid TEXT NOT NULL, serial_number TEXT NOT NULL,
    model_identifier TEXT NOT NULL, device_name TEXT NOT NULL,
    hub_serial TEXT NOT NULL, hub_port INTEGER NOT NULL, location TEXT NOT NULL,
    station TEXT NOT NULL, operator TEXT NOT NULL,
    started_at TEXT NOT NULL, ended_at TEXT NOT NULL, duration_ms BIGINT NOT NULL,
    outcome TEXT NOT NULL, exit_status INTEGER, last_error TEXT NOT NULL,
    firmware TEXT NOT NULL, firmware_sha256 TEXT NOT NULL, tarvel_version TEXT NOT NULL,
    station_sequence BIGINT NOT NULL, previous_hash TEXT NOT NULL, hash TEXT NOT NULL,
    received_at TIMESTAMPTZ NOT NULL DEFAULT now(),
    engine TEXT NOT NULL DEFAULT '', firmware_version TEXT NOT NULL DEFAULT ''))";

// A facility table that an older Tarvel made gains the columns this one writes; its rows keep
// them empty, as the benches that sent them never knew either.
const char* const addEngineColumns =
    "ALTER TABLE tarvel_records ADD COLUMN IF NOT EXISTS engine TEXT NOT NULL DEFAULT '', "
    "ADD COLUMN IF NOT EXISTS firmware_version TEXT NOT NULL DEFAULT ''";

// Not unique: a bench whose database was lost starts its chain again at 1, and its records must
// still arrive (verify then names where the chain restarts) rather than stop its outbox for good.
const char* const createChainIndex =
    "CREATE INDEX IF NOT EXISTS tarvel_records_chain ON tarvel_records (station, station_sequence)";

}  // namespace

bool FacilityDatabase::isFacilityURL(const QString& url) {
    const QString scheme = QUrl(url).scheme();
    return scheme == "postgresql" || scheme == "postgres";
}

QString FacilityDatabase::displayAddress(const QString& url) {
    return QUrl(url).toString(QUrl::RemovePassword);
}

FacilityDatabase::FacilityDatabase(const QString& url, int connectTimeoutSeconds)
    : url_(url),
      connectTimeoutSeconds_(connectTimeoutSeconds),
      connection_(QStringLiteral("tarvel-facility-") + QUuid::createUuid().toString(QUuid::Id128)) {
}

FacilityDatabase::~FacilityDatabase() {
    database_.close();
    database_ = QSqlDatabase();
    if (QSqlDatabase::contains(connection_))
        QSqlDatabase::removeDatabase(connection_);
}

bool FacilityDatabase::fail(const QString& why) {
    error_ = QStringLiteral("facility database %1: %2").arg(displayAddress(url_), why);
    return false;
}

bool FacilityDatabase::connect() {
    if (database_.isOpen())
        return true;
    if (!isFacilityURL(url_))
        return fail(QStringLiteral("not a postgresql:// address"));
    if (!QSqlDatabase::isDriverAvailable("QPSQL"))
        return fail(QStringLiteral("Qt's PostgreSQL driver is not installed"));
    const QUrl url(url_);
    if (!QSqlDatabase::contains(connection_))
        database_ = QSqlDatabase::addDatabase("QPSQL", connection_);
    database_.setHostName(url.host());
    if (url.port() > 0)
        database_.setPort(url.port());
    database_.setUserName(url.userName());
    database_.setPassword(url.password());
    database_.setDatabaseName(url.path().mid(1));
    // Query items pass through as libpq options (sslmode=require, …).
    QStringList options{QStringLiteral("connect_timeout=%1").arg(connectTimeoutSeconds_)};
    for (const auto& [key, value] : QUrlQuery(url).queryItems(QUrl::FullyDecoded))
        options << key + '=' + value;
    database_.setConnectOptions(options.join(';'));
    if (!database_.open())
        return fail(database_.lastError().text().trimmed());
    QSqlQuery query(database_);
    if (!query.exec(QLatin1String(createTable)) || !query.exec(QLatin1String(addEngineColumns)) ||
        !query.exec(QLatin1String(createChainIndex))) {
        const QString why = query.lastError().text();
        database_.close();
        return fail(why);
    }
    return true;
}

void FacilityDatabase::disconnect() {
    database_.close();
}

bool FacilityDatabase::insert(const QList<RestoreRecord>& records) {
    if (!connect())
        return false;
    if (!database_.transaction())
        return fail(database_.lastError().text());
    QSqlQuery query(database_);
    query.prepare("INSERT INTO tarvel_records (" + RecordRow::columns() + ") VALUES (" +
                  RecordRow::placeholders() + ") ON CONFLICT (id) DO NOTHING");
    for (const RestoreRecord& record : records) {
        RecordRow::bind(query, record);
        if (!query.exec()) {
            const QString why = query.lastError().text();
            database_.rollback();
            // A connection that broke mid-way is opened afresh next time.
            database_.close();
            return fail(why);
        }
    }
    if (!database_.commit()) {
        const QString why = database_.lastError().text();
        database_.close();
        return fail(why);
    }
    return true;
}

QList<RestoreRecord> FacilityDatabase::select(const QString& tail, const QVariantList& values) {
    QList<RestoreRecord> found;
    if (!connect())
        return found;
    QSqlQuery query(database_);
    query.setForwardOnly(true);
    query.prepare("SELECT " + RecordRow::columns() + " FROM tarvel_records" + tail);
    for (const QVariant& value : values) query.addBindValue(value);
    if (!query.exec()) {
        fail(query.lastError().text());
        return found;
    }
    while (query.next()) found.append(RecordRow::read(query));
    return found;
}

QList<RestoreRecord> FacilityDatabase::find(const RecordFilter& filter, int limit) {
    return select(filter.whereClause() + " ORDER BY ended_at DESC" +
                      (limit >= 0 ? QStringLiteral(" LIMIT %1").arg(limit) : QString()),
                  filter.values());
}

QList<RestoreRecord> FacilityDatabase::chainOrder() {
    return select(" ORDER BY station, station_sequence, received_at", {});
}

}  // namespace records
