#pragma once

#include <QByteArray>
#include <QJsonArray>

namespace simcfgutil {

// The document `cfgutil list` prints for the Macs of a "macs.list" reply: "Command", "Type",
// "Devices" (the ECIDs as "0x" hexadecimal) and "Output" (ECID → ECID, UDID, deviceType,
// locationID, name), as an XML property list or as JSON.
QByteArray listingDocument(const QJsonArray& macs, bool plist);

// A listing cut off in the middle, as a tool that crashed mid-write leaves it.
QByteArray garbledListingDocument(const QJsonArray& macs, bool plist);

// A failure document ("Type": "Error") with the message, in the chosen format.
QByteArray errorDocument(const QString& command, const QString& message, int code, bool plist);

}  // namespace simcfgutil
