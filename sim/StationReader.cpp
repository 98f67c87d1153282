#include "StationReader.h"

#include <QJsonValue>

#include <cmath>

namespace sim {

StationReader::StationReader(QString fileName, StationLoad& load)
    : fileName_(std::move(fileName)), load_(load) {}

void StationReader::error(const QString& field, const QString& reason) {
    if (load_.errors.size() < StationLoad::maxErrors)
        load_.errors << QStringLiteral("%1: %2: %3").arg(fileName_, field, reason);
    else
        ++load_.unlistedErrors;
}

bool StationReader::absent(const QJsonValue& value, const QString& field, bool required) {
    if (!value.isUndefined())
        return false;
    if (required)
        error(field, QStringLiteral("is required"));
    return true;
}

QString StationReader::join(const QString& path, const QString& key) {
    return path.isEmpty() ? key : path + u'.' + key;
}

void StationReader::rejectUnknown(const QJsonObject& object, const QString& path,
                                  std::initializer_list<const char*> known) {
    QStringList names;
    for (const char* name : known) names << QLatin1String(name);
    rejectUnknown(object, path, names);
}

void StationReader::rejectUnknown(const QJsonObject& object, const QString& path,
                                  const QStringList& names) {
    const QString reason = QStringLiteral("unknown field (known fields: %1)").arg(names.join(", "));
    for (auto it = object.begin(); it != object.end(); ++it)
        if (!names.contains(it.key()))
            error(join(path, it.key()), reason);
}

std::optional<qint64> StationReader::integer(const QJsonObject& object, const QString& path,
                                             const char* key, qint64 minimum, qint64 maximum,
                                             bool required) {
    const QString field = join(path, QLatin1String(key));
    const QJsonValue value = object.value(QLatin1String(key));
    const QString range =
        QStringLiteral("must be an integer from %1 to %2").arg(minimum).arg(maximum);
    if (absent(value, field, required))
        return std::nullopt;
    const double number = value.toDouble(std::nan(""));
    if (!value.isDouble() || number != std::floor(number) ||
        number < static_cast<double>(minimum) || number > static_cast<double>(maximum)) {
        error(field, range);
        return std::nullopt;
    }
    return static_cast<qint64>(number);
}

std::optional<double> StationReader::number(const QJsonObject& object, const QString& path,
                                            const char* key, double minimum, double maximum,
                                            bool required) {
    const QString field = join(path, QLatin1String(key));
    const QJsonValue value = object.value(QLatin1String(key));
    if (absent(value, field, required))
        return std::nullopt;
    if (!value.isDouble() || value.toDouble() < minimum || value.toDouble() > maximum) {
        error(field, QStringLiteral("must be a number from %1 to %2").arg(minimum).arg(maximum));
        return std::nullopt;
    }
    return value.toDouble();
}

std::optional<QString> StationReader::text(const QJsonObject& object, const QString& path,
                                           const char* key, bool required) {
    const QString field = join(path, QLatin1String(key));
    const QJsonValue value = object.value(QLatin1String(key));
    if (absent(value, field, required))
        return std::nullopt;
    if (!value.isString()) {
        error(field, QStringLiteral("must be text"));
        return std::nullopt;
    }
    return value.toString();
}

std::optional<bool> StationReader::boolean(const QJsonObject& object, const QString& path,
                                           const char* key) {
    const QJsonValue value = object.value(QLatin1String(key));
    if (value.isUndefined())
        return std::nullopt;
    if (!value.isBool()) {
        error(join(path, QLatin1String(key)), QStringLiteral("must be true or false"));
        return std::nullopt;
    }
    return value.toBool();
}

std::optional<std::uint64_t> StationReader::identifier(const QJsonObject& object,
                                                       const QString& path, const char* key,
                                                       std::uint64_t maximum, bool required) {
    const QString field = join(path, QLatin1String(key));
    const QJsonValue value = object.value(QLatin1String(key));
    const QString reason =
        QStringLiteral("must be \"0x\" and hexadecimal digits, or an integer, from 1 to 0x%1")
            .arg(static_cast<qulonglong>(maximum), 0, 16);
    if (absent(value, field, required))
        return std::nullopt;
    std::uint64_t parsed = 0;
    bool ok = false;
    if (value.isString()) {
        const QString written = value.toString();
        if (written.startsWith(QLatin1String("0x"), Qt::CaseInsensitive) && written.size() > 2)
            parsed = written.mid(2).toULongLong(&ok, 16);
    } else if (value.isDouble()) {
        const double number = value.toDouble();
        ok = number == std::floor(number) && number >= 0 && number < 9007199254740992.0;
        parsed = ok ? static_cast<std::uint64_t>(number) : 0;
    }
    if (!ok || parsed == 0 || parsed > maximum) {
        error(field, reason);
        return std::nullopt;
    }
    return parsed;
}

}  // namespace sim
