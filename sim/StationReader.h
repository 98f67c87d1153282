#pragma once

#include "StationConfig.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <initializer_list>
#include <optional>

namespace sim {

// Typed reads of one station file's JSON that record "file: field: reason" for every problem and
// let parsing carry on, so one run reports all of them (the first StationLoad::maxErrors in full,
// the rest counted).
class StationReader {
  public:
    StationReader(QString fileName, StationLoad& load);

    void error(const QString& field, const QString& reason);
    // True when the field is missing, after noting the error if it had to be there.
    bool absent(const QJsonValue& value, const QString& field, bool required);
    static QString join(const QString& path, const QString& key);

    void rejectUnknown(const QJsonObject& object, const QString& path,
                       std::initializer_list<const char*> known);
    void rejectUnknown(const QJsonObject& object, const QString& path, const QStringList& names);

    std::optional<qint64> integer(const QJsonObject& object, const QString& path, const char* key,
                                  qint64 minimum, qint64 maximum, bool required = false);
    std::optional<double> number(const QJsonObject& object, const QString& path, const char* key,
                                 double minimum, double maximum, bool required = false);
    std::optional<QString> text(const QJsonObject& object, const QString& path, const char* key,
                                bool required = false);
    std::optional<bool> boolean(const QJsonObject& object, const QString& path, const char* key);
    // "0x…" hexadecimal text, or a plain JSON integer.
    std::optional<std::uint64_t> identifier(const QJsonObject& object, const QString& path,
                                            const char* key, std::uint64_t maximum,
                                            bool required = false);

  private:
    QString fileName_;
    StationLoad& load_;
};

}  // namespace sim
