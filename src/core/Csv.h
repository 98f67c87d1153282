#pragma once

#include <QString>
#include <QStringList>

namespace core {

// One line of comma-separated values as spreadsheets read them: a field holding a comma, a quote
// or a line break is quoted, its quotes doubled. Ends with "\n".
QString csvLine(const QStringList& fields);

}  // namespace core
