#pragma once

#include "records/RestoreRecord.h"

#include <QDateTime>
#include <QString>
#include <QVariantList>

#include <optional>

namespace records {

// Which records a listing, an export or a certificate wants. Every set field narrows; the
// times compare with the record's end.
struct RecordFilter {
    QDateTime since{};
    QDateTime until{};
    QString serialNumber{};
    QString ecid{};
    std::optional<Outcome> outcome{};
    QString station{};
    QString batchId{};

    // " WHERE …" with positional placeholders (empty when nothing narrows), and its values.
    QString whereClause() const;
    QVariantList values() const;

    // A date as the command line and the window take it: "2026-11-23" (the day's start, or its
    // end for an upper bound, local time) or a full ISO 8601 time. Invalid when unreadable.
    static QDateTime parseDate(const QString& text, bool endOfDay);
};

}  // namespace records
