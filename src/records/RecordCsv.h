#pragma once

#include "records/RestoreRecord.h"

#include <QList>
#include <QString>

namespace records {

// Records for a spreadsheet: a header of every field's name, then one line a record, every
// field included, hash last.
QString recordsCsv(const QList<RestoreRecord>& records);

}  // namespace records
