#pragma once

#include "records/RestoreRecord.h"

#include <QSqlQuery>
#include <QString>

namespace records {

// A record as a table row: the one column list that the bench's SQLite database and the
// facility's PostgreSQL database share, so both read and write it the same way.
class RecordRow {
  public:
    // "id, batch_id, …, hash" in the order bind() and read() use.
    static QString columns();
    // "?, ?, …" for an INSERT of columns().
    static QString placeholders();
    // Binds the record's fields, in columns() order, to a prepared query.
    static void bind(QSqlQuery& query, const RestoreRecord& record);
    // Reads a record from a row whose first columns are columns(), starting at `first`.
    static RestoreRecord read(const QSqlQuery& query, int first = 0);
};

}  // namespace records
