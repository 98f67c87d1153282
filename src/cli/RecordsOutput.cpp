#include "cli/RecordsOutput.h"

#include "records/RecordCsv.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace cli {
namespace {

using records::RestoreRecord;

QString localTime(const QDateTime& time) {
    return time.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

QStringList shortFields(const RestoreRecord& r) {
    return {localTime(r.endedAt), records::outcomeName(r.outcome), r.ecid, r.serialNumber,
            r.modelIdentifier,    r.station, r.location, r.id};
}

QString table(const QList<RestoreRecord>& found) {
    QList<QStringList> rows{{"ENDED", "OUTCOME", "ECID", "SERIAL", "MODEL", "STATION", "PORT",
                             "RECORD"}};
    for (const RestoreRecord& record : found) rows.append(shortFields(record));
    QList<qsizetype> widths(rows.first().size(), 0);
    for (const QStringList& row : rows)
        for (qsizetype i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
    QString text;
    for (const QStringList& row : rows) {
        QString line;
        for (qsizetype i = 0; i < row.size(); ++i)
            line += i + 1 == row.size() ? row[i] : row[i].leftJustified(widths[i] + 2);
        text += line + '\n';
    }
    return text;
}

}  // namespace

QString recordsText(const QList<RestoreRecord>& found, RecordsFormat format) {
    switch (format) {
        case RecordsFormat::table:
            return table(found);
        case RecordsFormat::plain: {
            QString text;
            for (const RestoreRecord& record : found) text += shortFields(record).join('\t') + '\n';
            return text;
        }
        case RecordsFormat::json: {
            QJsonArray array;
            for (const RestoreRecord& record : found) array.append(record.toJson());
            return QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Indented));
        }
        case RecordsFormat::csv:
            return records::recordsCsv(found);
    }
    return {};
}

}  // namespace cli
