#pragma once

#include <QByteArray>
#include <QVariant>

#include <optional>

namespace core {

// Reads an XML or binary property list into Qt values: dictionaries become QVariantMap, arrays
// QVariantList, integers qint64 (quint64 when they do not fit), reals double, data QByteArray,
// dates QDateTime. Answers nothing when the bytes are not a property list.
std::optional<QVariant> parsePropertyList(const QByteArray& bytes);

}  // namespace core
