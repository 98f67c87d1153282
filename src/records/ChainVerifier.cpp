#include "records/ChainVerifier.h"

namespace records {
namespace {

ChainVerifier::Result fault(ChainVerifier::Result result, const RestoreRecord& at,
                            const QString& what) {
    result.intact = false;
    result.firstFault = what;
    result.recordId = at.id;
    return result;
}

}  // namespace

ChainVerifier::Result ChainVerifier::verify(const QList<RestoreRecord>& records) {
    Result result;
    const RestoreRecord* previous = nullptr;
    for (const RestoreRecord& record : records) {
        if (!previous || previous->station != record.station) {
            ++result.stations;
            previous = nullptr;
        }
        ++result.records;
        const QString where = QStringLiteral("record %1 (station \"%2\", number %3)")
                                  .arg(record.id, record.station)
                                  .arg(record.stationSequence);
        if (record.computeHash() != record.hash)
            return fault(result, record, where + QStringLiteral(" was changed: its fields no "
                                                                "longer give its hash"));
        const qint64 expected = previous ? previous->stationSequence + 1 : 1;
        const QString expectedLink = previous ? previous->hash : QString();
        if (record.stationSequence != expected || record.previousHash != expectedLink) {
            const qint64 missing = record.stationSequence - expected;
            const QString removed =
                missing > 1 ? QStringLiteral("records %1 to %2 of station \"%3\" were removed")
                                  .arg(expected)
                                  .arg(record.stationSequence - 1)
                                  .arg(record.station)
                : missing == 1
                    ? QStringLiteral("record %1 of station \"%2\" was removed")
                          .arg(expected)
                          .arg(record.station)
                    : QStringLiteral("the record before %1 was changed or removed").arg(where);
            return fault(result, record, removed + QStringLiteral(" (found at %1)").arg(where));
        }
        previous = &record;
    }
    return result;
}

}  // namespace records
