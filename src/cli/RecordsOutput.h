#pragma once

#include "records/RestoreRecord.h"

#include <QList>
#include <QString>

namespace cli {

// How `records` prints what it found: an aligned table for a person at a terminal, one
// tab-separated line per record when piped, JSON or CSV when asked.
enum class RecordsFormat { table, plain, json, csv };

QString recordsText(const QList<records::RestoreRecord>& found, RecordsFormat format);

}  // namespace cli
