#include "usb/PropertyValues.h"

#include <cmath>

namespace usb {

bool isNumber(const QVariant& value) {
    switch (value.typeId()) {
        case QMetaType::Int:
        case QMetaType::UInt:
        case QMetaType::Long:
        case QMetaType::ULong:
        case QMetaType::LongLong:
        case QMetaType::ULongLong:
        case QMetaType::Short:
        case QMetaType::UShort:
        case QMetaType::Double:
            return true;
        default:
            return false;
    }
}

bool isText(const QVariant& value) {
    return value.typeId() == QMetaType::QString;
}

std::optional<std::int64_t> signedProperty(const PropertyMap& properties, const QString& key) {
    const QVariant value = properties.value(key);
    if (!isNumber(value))
        return std::nullopt;
    if (value.typeId() == QMetaType::ULongLong || value.typeId() == QMetaType::ULong)
        return static_cast<std::int64_t>(value.toULongLong());
    return value.toLongLong();
}

std::optional<std::uint64_t> unsignedProperty(const PropertyMap& properties, const QString& key) {
    const QVariant value = properties.value(key);
    if (!isNumber(value))
        return std::nullopt;
    if (value.typeId() == QMetaType::ULongLong || value.typeId() == QMetaType::ULong)
        return value.toULongLong();
    return static_cast<std::uint64_t>(value.toLongLong());
}

std::optional<QString> textProperty(const PropertyMap& properties, const QString& key) {
    const QVariant value = properties.value(key);
    if (!isText(value))
        return std::nullopt;
    return value.toString();
}

QString decimalText(const QVariant& number) {
    if (number.typeId() == QMetaType::Double) {
        const double value = number.toDouble();
        if (std::trunc(value) == value && std::abs(value) < 9.0e15)
            return QString::number(static_cast<qlonglong>(value));
        return QString::number(value, 'g', 17);
    }
    if (number.typeId() == QMetaType::ULongLong || number.typeId() == QMetaType::ULong)
        return QString::number(number.toULongLong());
    return QString::number(number.toLongLong());
}

}  // namespace usb
