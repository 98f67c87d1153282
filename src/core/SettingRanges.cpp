#include "core/SettingRanges.h"

#include <QStringList>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace core {
namespace {

constexpr double kTenMinutes = 600;
constexpr double kUInt32Max = 4294967295.0;

// Ten minutes is far beyond any pause a hub or a Mac needs, and short enough that a mistyped
// value shows itself as a slow run rather than a hung one.
constexpr std::array kRanges{
    SettingRange{keys::acronameDelayAfterSettingPowerMode, 0, kTenMinutes, 3},
    SettingRange{keys::acronameDelayAfterSendingDFUCommand, 0, kTenMinutes, 1},
    SettingRange{keys::acronameDelayAfterPuttingAllPortInDFUMode, 0, kTenMinutes, 8},
    SettingRange{keys::acronameDelayAfterRebootAllPorts, 0, kTenMinutes, 5},
    SettingRange{keys::acronameRecoveryRebootDelay, 0, 60, 1.5},
    SettingRange{keys::acronameRecoveryRebootTimes, 1, 10, 6},
    SettingRange{keys::verifyTimeoutSeconds, 0, kTenMinutes, 30},
    SettingRange{keys::recoverySleepBetweenReboots, 0, kUInt32Max, 0},
    SettingRange{keys::timeBetweenProcesses, 0, kUInt32Max, 3},
    SettingRange{keys::unattendedMaxRestores, 1, 64, 4},
    SettingRange{keys::maxConcurrentRestores, 0, 64, 0},
    SettingRange{keys::restoreRetries, 0, 5, 1},
};

// Both texts the options sheet stores as typed; their readers take whole decimal numbers only.
bool holdsWholeNumberText(const SettingKey& key) {
    return QLatin1String(key.name) == QLatin1String(keys::timeBetweenProcesses) ||
           QLatin1String(key.name) == QLatin1String(keys::stayInFrontAfterDFUSecs);
}

QString rangeText(const SettingRange& range) {
    return QStringLiteral("from %1 to %2 (else %3 is used)")
        .arg(range.minimum, 0, 'g', 12)
        .arg(range.maximum, 0, 'g', 12)
        .arg(range.fallback);
}

QString booleanProblem(const QVariant& value) {
    static const QStringList words{"true", "false", "yes", "no", "1", "0"};
    if (value.typeId() == QMetaType::Bool)
        return {};
    if (value.typeId() == QMetaType::QString && words.contains(value.toString().toLower()))
        return {};
    return QStringLiteral("takes true or false (-bool)");
}

QString numberProblem(const SettingKey& key, const QVariant& value) {
    const std::optional<double> number = finiteNumber(value);
    const bool whole = key.type == SettingType::Integer;
    const QString kind = whole ? QStringLiteral("a whole number") : QStringLiteral("a number");
    const SettingRange* range = findSettingRange(QLatin1String(key.name));
    const QString expected = range ? kind + ' ' + rangeText(*range) : kind;
    if (!number || (whole && *number != std::trunc(*number)))
        return QStringLiteral("takes %1").arg(expected);
    if (range && (*number < range->minimum || *number > range->maximum))
        return QStringLiteral("takes %1").arg(expected);
    return {};
}

QString textProblem(const SettingKey& key, const QVariant& value) {
    if (value.typeId() != QMetaType::QString)
        return QStringLiteral("takes text (-string)");
    if (!holdsWholeNumberText(key))
        return {};
    const SettingRange* range = findSettingRange(QLatin1String(key.name));
    const std::optional<qint64> number = strictDecimalInteger(value.toString());
    const bool inRange = number && (!range || (static_cast<double>(*number) >= range->minimum &&
                                               static_cast<double>(*number) <= range->maximum));
    if (inRange)
        return {};
    return range ? QStringLiteral("takes a whole number of seconds %1").arg(rangeText(*range))
                 : QStringLiteral("takes a whole number of seconds (else 15 is used)");
}

}  // namespace

std::span<const SettingRange> settingRanges() {
    return kRanges;
}

const SettingRange* findSettingRange(const QString& key) {
    const auto it = std::find_if(kRanges.begin(), kRanges.end(), [&](const SettingRange& range) {
        return key == QLatin1String(range.key);
    });
    return it == kRanges.end() ? nullptr : &*it;
}

std::optional<double> finiteNumber(const QVariant& value) {
    double number = 0;
    if (isNumericType(value)) {
        number = value.toDouble();
    } else if (value.typeId() == QMetaType::QString) {
        const QByteArray text = value.toString().toLatin1();
        // strtod would skip leading blanks; a value with any is not just a number.
        if (text.isEmpty() || std::isspace(static_cast<unsigned char>(text.front())))
            return std::nullopt;
        char* end = nullptr;
        number = std::strtod(text.constData(), &end);
        if (end != text.constData() + text.size())
            return std::nullopt;
    } else {
        return std::nullopt;
    }
    if (!std::isfinite(number))
        return std::nullopt;
    return number;
}

std::optional<qint64> strictDecimalInteger(const QString& text) {
    qsizetype digitsFrom = 0;
    if (text.startsWith(u'+') || text.startsWith(u'-'))
        digitsFrom = 1;
    if (text.size() == digitsFrom)
        return std::nullopt;
    for (qsizetype i = digitsFrom; i < text.size(); ++i)
        if (text[i] < u'0' || text[i] > u'9')
            return std::nullopt;
    const QByteArray latin1 = text.toLatin1();
    errno = 0;
    const long long number = std::strtoll(latin1.constData(), nullptr, 10);
    if (errno == ERANGE)
        return std::nullopt;
    return number;
}

QString settingValueProblem(const SettingKey& key, const QVariant& value) {
    switch (key.type) {
        case SettingType::Boolean:
            return booleanProblem(value);
        case SettingType::Integer:
        case SettingType::Real:
            return numberProblem(key, value);
        case SettingType::String:
            return textProblem(key, value);
    }
    return {};
}

bool isNumericType(const QVariant& value) {
    switch (value.typeId()) {
        case QMetaType::Int:
        case QMetaType::UInt:
        case QMetaType::LongLong:
        case QMetaType::ULongLong:
        case QMetaType::Double:
        case QMetaType::Float:
            return true;
        default:
            return false;
    }
}

}  // namespace core
