#pragma once

#include "records/RestoreRecord.h"

#include <QList>
#include <QString>

namespace records {

// Walks each station's records in chain order, recomputing every hash and every link. The
// first fault it meets is named: a record whose fields no longer give its hash was changed; a
// record whose link does not meet the record before it, or a gap in the running numbers, means
// records were removed before it.
class ChainVerifier {
  public:
    struct Result {
        bool intact = true;
        qint64 records = 0;
        int stations = 0;
        QString firstFault;  // empty when intact
        QString recordId;    // the record the fault is found at
    };

    // `records`: grouped by station, each station's in ascending station sequence.
    static Result verify(const QList<RestoreRecord>& records);
};

}  // namespace records
