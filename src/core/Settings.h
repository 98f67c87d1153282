#pragma once

#include <QSet>
#include <QSettings>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>

#include <memory>

#include <sys/types.h>
#include <mutex>

namespace core {

// The application's preferences domain. User values live in a QSettings store; values registered
// at start-up act as fallbacks and are never written back. Every read goes to the store at the
// moment of use (re-reading the file when another process changed it), so a value written from
// the command line takes effect at the next operation.
class Settings {
public:
    explicit Settings(std::unique_ptr<QSettings> store);

    // The store every part of the application shares: on Linux ~/.config/kestrune.com/Tarvel.conf.
    static Settings& shared();

    void registerDefaults(const QVariantMap& defaults);

    // The user's value if set, else the registered fallback, else an invalid QVariant.
    QVariant object(const QString& key) const;
    QVariant userValue(const QString& key) const;
    QVariant registeredDefault(const QString& key) const;
    QStringList userKeys() const;

    // Typed reads: an absent key reads as the type's zero. Text is converted the way the
    // platform's preferences do: a leading number is taken, "YES"/"true"/"1" read as true.
    bool boolForKey(const QString& key) const;
    qint64 integerForKey(const QString& key) const;
    double doubleForKey(const QString& key) const;
    QString stringForKey(const QString& key) const;

    // A pause or a bound: the user's value when it is a finite number in the key's range (see
    // SettingRanges), else the registered default when that is, else the range's own fallback.
    // A key that falls back is logged once per Settings object, so once per run.
    double boundedNumber(const char* key) const;

    void setValue(const QString& key, const QVariant& value);
    void remove(const QString& key);

    QString storePath() const;

private:
    struct FileStamp {
        bool exists = false;
        ino_t inode = 0;
        off_t size = 0;
        time_t seconds = 0;
        long nanoseconds = 0;
        bool operator==(const FileStamp&) const = default;
    };
    void syncIfChanged() const;

    mutable std::mutex mutex_;
    std::unique_ptr<QSettings> store_;
    QByteArray storeFile_;
    mutable FileStamp stamp_;
    mutable bool synced_ = false;
    QVariantMap defaults_;
    mutable QSet<QString> reportedKeys_;
};

// Conversions shared by the typed reads; exposed because the command line prints and parses
// values the same way.
bool textAsBool(const QString& text);
qint64 textAsInteger(const QString& text);
double textAsDouble(const QString& text);
bool variantAsBool(const QVariant& value);
qint64 variantAsInteger(const QVariant& value);
double variantAsDouble(const QVariant& value);

}  // namespace core
