#pragma once

#include "usb/UsbRegistry.h"

#include <cstdint>
#include <optional>

namespace usb {

// Reads of registry values with IOKit's typing: a number is an integer value, text is text;
// anything else reads as missing.
bool isNumber(const QVariant& value);
bool isText(const QVariant& value);

// An unsigned value above the signed range reads as negative, as a 64-bit CFNumber would.
std::optional<std::int64_t> signedProperty(const PropertyMap& properties, const QString& key);
std::optional<std::uint64_t> unsignedProperty(const PropertyMap& properties, const QString& key);
std::optional<QString> textProperty(const PropertyMap& properties, const QString& key);

// The decimal text of a number value.
QString decimalText(const QVariant& number);

}  // namespace usb
