#pragma once

#include <QSqlDatabase>
#include <QString>

namespace records {

// The bench database's schema, versioned by SQLite's user_version. Each step moves a database
// one version up inside one transaction, so a database is always at a version it names.
class RecordSchema {
  public:
    static constexpr int currentVersion = 3;

    // Brings the database up to currentVersion. False, with `error` set, when a step failed or
    // the database is from a newer Tarvel than this one.
    static bool migrate(QSqlDatabase& database, QString* error);
    static int version(QSqlDatabase& database);

    // The statements of one step, from `from` to `from + 1`; tests build old databases with them.
    static QStringList step(int from);
};

}  // namespace records
