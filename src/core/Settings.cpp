#include "core/Settings.h"

#include "core/Log.h"
#include "core/SettingRanges.h"

#include <QFile>

#include <sys/stat.h>

#include <cmath>
#include <cstdlib>
#include <limits>

namespace core {
namespace {

// Skips leading blanks and answers the longest prefix that strtoll/strtod accept.
QByteArray trimmedLatin1(const QString& text) { return text.trimmed().toLatin1(); }

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

}  // namespace

bool textAsBool(const QString& text) {
    // "Y", "y", "T", "t" or a digit 1-9 after leading blanks and zeros count as true.
    QString rest = text.trimmed();
    if (rest.startsWith('+') || rest.startsWith('-')) rest.remove(0, 1);
    while (rest.startsWith('0')) rest.remove(0, 1);
    if (rest.isEmpty()) return false;
    const QChar first = rest.front();
    return first == 'Y' || first == 'y' || first == 'T' || first == 't' ||
           (first >= '1' && first <= '9');
}

qint64 textAsInteger(const QString& text) {
    const QByteArray bytes = trimmedLatin1(text);
    return std::strtoll(bytes.constData(), nullptr, 10);
}

double textAsDouble(const QString& text) {
    const QByteArray bytes = trimmedLatin1(text);
    return std::strtod(bytes.constData(), nullptr);
}

bool variantAsBool(const QVariant& value) {
    if (!value.isValid()) return false;
    if (value.typeId() == QMetaType::Bool) return value.toBool();
    if (isNumericType(value)) return value.toDouble() != 0;
    return textAsBool(value.toString());
}

qint64 variantAsInteger(const QVariant& value) {
    if (!value.isValid()) return 0;
    if (value.typeId() == QMetaType::Bool) return value.toBool() ? 1 : 0;
    if (value.typeId() == QMetaType::Double || value.typeId() == QMetaType::Float) {
        // A double beyond 64 bits has no integer value; converting it anyway is undefined.
        const double number = value.toDouble();
        if (std::isnan(number))
            return 0;
        if (number >= 9223372036854775807.0)
            return std::numeric_limits<qint64>::max();
        if (number <= -9223372036854775808.0)
            return std::numeric_limits<qint64>::min();
        return static_cast<qint64>(number);
    }
    if (isNumericType(value)) return value.toLongLong();
    return textAsInteger(value.toString());
}

double variantAsDouble(const QVariant& value) {
    if (!value.isValid()) return 0;
    if (value.typeId() == QMetaType::Bool) return value.toBool() ? 1 : 0;
    if (isNumericType(value)) return value.toDouble();
    return textAsDouble(value.toString());
}

Settings::Settings(std::unique_ptr<QSettings> store)
    : store_(std::move(store)), storeFile_(QFile::encodeName(store_->fileName())) {}

Settings& Settings::shared() {
    static Settings instance(std::make_unique<QSettings>(QSettings::NativeFormat, QSettings::UserScope,
                                                         QStringLiteral("kestrune.com"),
                                                         QStringLiteral("Tarvel")));
    return instance;
}

void Settings::registerDefaults(const QVariantMap& defaults) {
    std::lock_guard lock(mutex_);
    for (auto it = defaults.begin(); it != defaults.end(); ++it) defaults_.insert(it.key(), it.value());
}

void Settings::syncIfChanged() const {
    // One stat tells whether another process wrote the store since we last read it; QSettings'
    // own check costs several, and the logger asks for showDebug at every debug line.
    struct stat seen {};
    const bool exists = ::stat(storeFile_.constData(), &seen) == 0;
    const FileStamp stamp{exists, seen.st_ino, seen.st_size, seen.st_mtim.tv_sec,
                          seen.st_mtim.tv_nsec};
    if (synced_ && stamp == stamp_)
        return;
    store_->sync();
    stamp_ = stamp;
    synced_ = true;
}

QVariant Settings::userValue(const QString& key) const {
    std::lock_guard lock(mutex_);
    syncIfChanged();
    return store_->value(key);
}

QVariant Settings::registeredDefault(const QString& key) const {
    std::lock_guard lock(mutex_);
    return defaults_.value(key);
}

QVariant Settings::object(const QString& key) const {
    const QVariant user = userValue(key);
    return user.isValid() ? user : registeredDefault(key);
}

QStringList Settings::userKeys() const {
    std::lock_guard lock(mutex_);
    syncIfChanged();
    return store_->allKeys();
}

bool Settings::boolForKey(const QString& key) const { return variantAsBool(object(key)); }

qint64 Settings::integerForKey(const QString& key) const { return variantAsInteger(object(key)); }

double Settings::doubleForKey(const QString& key) const { return variantAsDouble(object(key)); }

QString Settings::stringForKey(const QString& key) const {
    const QVariant value = object(key);
    if (!value.isValid()) return {};
    if (value.typeId() == QMetaType::Bool) return value.toBool() ? "1" : "0";
    return value.toString();
}

double Settings::boundedNumber(const char* key) const {
    const SettingRange* range = findSettingRange(QLatin1String(key));
    Q_ASSERT(range);
    const auto acceptable = [range](const QVariant& value) {
        const std::optional<double> number = finiteNumber(value);
        return number && *number >= range->minimum && *number <= range->maximum ? number
                                                                                : std::nullopt;
    };
    const QVariant user = userValue(QLatin1String(key));
    if (const auto number = acceptable(user))
        return *number;
    const QVariant fallback = registeredDefault(QLatin1String(key));
    const double used = acceptable(fallback).value_or(range->fallback);
    const QVariant& rejected = user.isValid() ? user : fallback;
    if (!rejected.isValid())
        return used;
    bool firstTime = false;
    {
        std::lock_guard lock(mutex_);
        firstTime = !reportedKeys_.contains(QLatin1String(key));
        reportedKeys_.insert(QLatin1String(key));
    }
    if (firstTime)
        ZMRLogLevel1(QStringLiteral("Setting %1: \"%2\" is not a number from %3 to %4; using %5")
                         .arg(QLatin1String(key), rejected.toString())
                         .arg(range->minimum)
                         .arg(range->maximum)
                         .arg(used));
    return used;
}

void Settings::setValue(const QString& key, const QVariant& value) {
    std::lock_guard lock(mutex_);
    store_->setValue(key, value);
    store_->sync();
    synced_ = false;
}

void Settings::remove(const QString& key) {
    std::lock_guard lock(mutex_);
    store_->remove(key);
    store_->sync();
    synced_ = false;
}

QString Settings::storePath() const {
    std::lock_guard lock(mutex_);
    return store_->fileName();
}

}  // namespace core
