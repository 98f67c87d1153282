#include "records/RecordFilter.h"

#include <QStringList>

namespace records {
namespace {

template <typename Visit>
void eachCondition(const RecordFilter& f, Visit visit) {
    if (f.since.isValid())
        visit("ended_at >= ?", recordTime(f.since));
    if (f.until.isValid())
        visit("ended_at <= ?", recordTime(f.until));
    if (!f.serialNumber.isEmpty())
        visit("serial_number = ?", f.serialNumber);
    if (!f.ecid.isEmpty())
        visit("ecid = ?", f.ecid);
    if (f.outcome)
        visit("outcome = ?", outcomeName(*f.outcome));
    if (!f.station.isEmpty())
        visit("station = ?", f.station);
    if (!f.batchId.isEmpty())
        visit("batch_id = ?", f.batchId);
}

}  // namespace

QString RecordFilter::whereClause() const {
    QStringList conditions;
    eachCondition(*this, [&](const char* condition, const QString&) {
        conditions << QLatin1String(condition);
    });
    return conditions.isEmpty() ? QString() : " WHERE " + conditions.join(" AND ");
}

QVariantList RecordFilter::values() const {
    QVariantList bound;
    eachCondition(*this, [&](const char*, const QString& value) { bound << value; });
    return bound;
}

QDateTime RecordFilter::parseDate(const QString& text, bool endOfDay) {
    // QDate reads the date part of a full time too; only a bare date means a whole day.
    const QDate day = QDate::fromString(text, QStringLiteral("yyyy-MM-dd"));
    if (day.isValid() && text.size() == 10)
        return endOfDay ? QDateTime(day, QTime(23, 59, 59, 999)) : QDateTime(day, QTime(0, 0));
    return QDateTime::fromString(text, Qt::ISODateWithMs);
}

}  // namespace records
