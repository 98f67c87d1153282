#include "records/RestoreRecord.h"

#include <QCryptographicHash>
#include <QJsonDocument>

#include <array>

namespace records {
namespace {

constexpr std::array outcomeNames{"restored", "failed", "cancelled", "abandoned"};

}  // namespace

QString outcomeName(Outcome outcome) {
    return QString::fromLatin1(outcomeNames[static_cast<std::size_t>(outcome)]);
}

std::optional<Outcome> outcomeFromName(const QString& name) {
    for (std::size_t i = 0; i < outcomeNames.size(); ++i)
        if (name == QLatin1String(outcomeNames[i]))
            return static_cast<Outcome>(i);
    return std::nullopt;
}

QString recordTime(const QDateTime& time) {
    return time.isValid() ? time.toUTC().toString(Qt::ISODateWithMs) : QString();
}

QDateTime parseRecordTime(const QString& text) {
    return QDateTime::fromString(text, Qt::ISODateWithMs).toUTC();
}

QJsonObject RestoreRecord::hashedFields() const {
    QJsonObject fields{{"id", id},
                       {"batchId", batchId},
                       {"ecid", ecid},
                       {"serialNumber", serialNumber},
                       {"modelIdentifier", modelIdentifier},
                       {"deviceName", deviceName},
                       {"hubSerial", hubSerial},
                       {"hubPort", hubPort},
                       {"location", location},
                       {"station", station},
                       {"operator", operatorName},
                       {"startedAt", recordTime(startedAt)},
                       {"endedAt", recordTime(endedAt)},
                       {"durationMs", durationMs},
                       {"outcome", outcomeName(outcome)},
                       {"exitStatus", exitStatus ? QJsonValue(*exitStatus) : QJsonValue()},
                       {"lastError", lastError},
                       {"firmware", firmware},
                       {"firmwareSha256", firmwareSha256},
                       {"tarvelVersion", tarvelVersion},
                       {"stationSequence", stationSequence},
                       {"previousHash", previousHash}};
    if (!engine.isEmpty())
        fields.insert("engine", engine);
    if (!firmwareVersion.isEmpty())
        fields.insert("firmwareVersion", firmwareVersion);
    return fields;
}

// QJsonObject keeps its keys sorted and compact output has no spacing choices, so the same
// fields always give the same bytes, on every machine that checks them.
QString RestoreRecord::computeHash() const {
    const QByteArray canonical = QJsonDocument(hashedFields()).toJson(QJsonDocument::Compact);
    return QString::fromLatin1(
        QCryptographicHash::hash(canonical, QCryptographicHash::Sha256).toHex());
}

QJsonObject RestoreRecord::toJson() const {
    QJsonObject object = hashedFields();
    object.insert("engine", engine);
    object.insert("firmwareVersion", firmwareVersion);
    object.insert("hash", hash);
    return object;
}

std::optional<RestoreRecord> RestoreRecord::fromJson(const QJsonObject& o) {
    const std::optional<Outcome> parsedOutcome = outcomeFromName(o.value("outcome").toString());
    if (!parsedOutcome || o.value("id").toString().isEmpty())
        return std::nullopt;
    RestoreRecord r;
    r.id = o.value("id").toString();
    r.batchId = o.value("batchId").toString();
    r.ecid = o.value("ecid").toString();
    r.serialNumber = o.value("serialNumber").toString();
    r.modelIdentifier = o.value("modelIdentifier").toString();
    r.deviceName = o.value("deviceName").toString();
    r.hubSerial = o.value("hubSerial").toString();
    r.hubPort = o.value("hubPort").toInt();
    r.location = o.value("location").toString();
    r.station = o.value("station").toString();
    r.operatorName = o.value("operator").toString();
    r.startedAt = parseRecordTime(o.value("startedAt").toString());
    r.endedAt = parseRecordTime(o.value("endedAt").toString());
    r.durationMs = o.value("durationMs").toInteger();
    r.outcome = *parsedOutcome;
    if (o.value("exitStatus").isDouble())
        r.exitStatus = o.value("exitStatus").toInt();
    r.lastError = o.value("lastError").toString();
    r.firmware = o.value("firmware").toString();
    r.firmwareSha256 = o.value("firmwareSha256").toString();
    r.tarvelVersion = o.value("tarvelVersion").toString();
    r.engine = o.value("engine").toString();
    r.firmwareVersion = o.value("firmwareVersion").toString();
    r.stationSequence = o.value("stationSequence").toInteger();
    r.previousHash = o.value("previousHash").toString();
    r.hash = o.value("hash").toString();
    return r;
}

}  // namespace records
