#pragma once

#include "core/SettingsKeys.h"

#include <QString>
#include <QVariant>

#include <optional>
#include <span>

namespace core {

// The values a numeric setting that sets a pause or a bound may take. A value outside them
// would hang a command or spin it, so it is replaced by `fallback`.
struct SettingRange {
    const char* key;
    double minimum;
    double maximum;
    double fallback;
};

std::span<const SettingRange> settingRanges();
const SettingRange* findSettingRange(const QString& key);

// The value as a finite number: a stored number, or a text that is a number and nothing else.
std::optional<double> finiteNumber(const QVariant& value);

// An optional sign and decimal digits, nothing before or after them, within 64 bits.
std::optional<qint64> strictDecimalInteger(const QString& text);

// Why `value` does not suit the known key (wrong type, out of range, text its reader will not
// take), or an empty text when it does.
QString settingValueProblem(const SettingKey& key, const QVariant& value);

}  // namespace core
