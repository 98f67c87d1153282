#include "records/RecordCsv.h"

#include "core/Csv.h"

#include <QJsonObject>
#include <QStringList>

namespace records {

QString recordsCsv(const QList<RestoreRecord>& records) {
    const QStringList keys{"id",
                           "batchId",
                           "ecid",
                           "serialNumber",
                           "modelIdentifier",
                           "deviceName",
                           "hubSerial",
                           "hubPort",
                           "location",
                           "station",
                           "operator",
                           "startedAt",
                           "endedAt",
                           "durationMs",
                           "outcome",
                           "exitStatus",
                           "lastError",
                           "firmware",
                           "firmwareSha256",
                           "tarvelVersion",
                           "stationSequence",
                           "previousHash",
                           "hash",
                           "engine",
                           "firmwareVersion"};
    QString text = core::csvLine(keys);
    for (const RestoreRecord& record : records) {
        const QJsonObject object = record.toJson();
        QStringList fields;
        for (const QString& key : keys) {
            const QJsonValue value = object.value(key);
            fields << (value.isDouble() ? QString::number(value.toInteger()) : value.toString());
        }
        text += core::csvLine(fields);
    }
    return text;
}

}  // namespace records
