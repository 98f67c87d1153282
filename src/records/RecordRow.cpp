#include "records/RecordRow.h"

#include <QStringList>
#include <QVariant>

namespace records {
namespace {

const QStringList names{"id",
                        "batch_id",
                        "ecid",
                        "serial_number",
                        "model_identifier",
                        "device_name",
                        "hub_serial",
                        "hub_port",
                        "location",
                        "station",
                        "operator",
                        "started_at",
                        "ended_at",
                        "duration_ms",
                        "outcome",
                        "exit_status",
                        "last_error",
                        "firmware",
                        "firmware_sha256",
                        "tarvel_version",
                        "station_sequence",
                        "previous_hash",
                        "hash",
                        "engine",
                        "firmware_version"};

// Qt binds a null QString as SQL NULL; an unknown text field is stored empty instead.
QVariant text(const QString& value) {
    return value.isNull() ? QVariant(QString("")) : QVariant(value);
}

}  // namespace

QString RecordRow::columns() {
    return names.join(", ");
}

QString RecordRow::placeholders() {
    QStringList marks;
    marks.fill(QStringLiteral("?"), names.size());
    return marks.join(", ");
}

void RecordRow::bind(QSqlQuery& query, const RestoreRecord& r) {
    for (const QVariant& value :
         {text(r.id),
          text(r.batchId),
          text(r.ecid),
          text(r.serialNumber),
          text(r.modelIdentifier),
          text(r.deviceName),
          text(r.hubSerial),
          QVariant(r.hubPort),
          text(r.location),
          text(r.station),
          text(r.operatorName),
          text(recordTime(r.startedAt)),
          text(recordTime(r.endedAt)),
          QVariant(r.durationMs),
          text(outcomeName(r.outcome)),
          r.exitStatus ? QVariant(*r.exitStatus) : QVariant(QMetaType(QMetaType::Int)),
          text(r.lastError),
          text(r.firmware),
          text(r.firmwareSha256),
          text(r.tarvelVersion),
          QVariant(r.stationSequence),
          text(r.previousHash),
          text(r.hash),
          text(r.engine),
          text(r.firmwareVersion)})
        query.addBindValue(value);
}

RestoreRecord RecordRow::read(const QSqlQuery& q, int first) {
    const auto text = [&](int i) { return q.value(first + i).toString(); };
    RestoreRecord r;
    r.id = text(0);
    r.batchId = text(1);
    r.ecid = text(2);
    r.serialNumber = text(3);
    r.modelIdentifier = text(4);
    r.deviceName = text(5);
    r.hubSerial = text(6);
    r.hubPort = q.value(first + 7).toInt();
    r.location = text(8);
    r.station = text(9);
    r.operatorName = text(10);
    r.startedAt = parseRecordTime(text(11));
    r.endedAt = parseRecordTime(text(12));
    r.durationMs = q.value(first + 13).toLongLong();
    // A row whose outcome was edited to nonsense still reads, as "failed"; verify names it.
    r.outcome = outcomeFromName(text(14)).value_or(Outcome::failed);
    if (!q.isNull(first + 15))
        r.exitStatus = q.value(first + 15).toInt();
    r.lastError = text(16);
    r.firmware = text(17);
    r.firmwareSha256 = text(18);
    r.tarvelVersion = text(19);
    r.stationSequence = q.value(first + 20).toLongLong();
    r.previousHash = text(21);
    r.hash = text(22);
    r.engine = text(23);
    r.firmwareVersion = text(24);
    return r;
}

}  // namespace records
