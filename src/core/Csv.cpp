#include "core/Csv.h"

namespace core {
namespace {

QString csvField(QString text) {
    const bool needsQuotes = text.contains(',') || text.contains('"') || text.contains('\n') ||
                             text.contains('\r');
    if (!needsQuotes)
        return text;
    text.replace('"', QStringLiteral("\"\""));
    return '"' + text + '"';
}

}  // namespace

QString csvLine(const QStringList& fields) {
    QStringList quoted;
    for (const QString& field : fields) quoted << csvField(field);
    return quoted.join(',') + '\n';
}

}  // namespace core
