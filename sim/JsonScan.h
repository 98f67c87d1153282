#pragma once

#include <QByteArray>
#include <QString>

#include <functional>

namespace sim {

// How many nodes a JSON document would become, counted without building any: what a parser would
// allocate for a document is many times its size, so the count decides first whether to parse.
struct JsonShape {
    qsizetype containers = 0;  // objects and arrays
    qsizetype commas = 0;      // one fewer than the values of each object or array
};
JsonShape measureJson(const QByteArray& json);

// Calls `found` for each field of a JSON document that is given again in its object, with its path
// like "hubs[0].macs[1].port". A JSON parser silently keeps one of the values, so a station file
// could say two things and be read as one. Only the first `keysPerObject` keys of an object are
// compared, which keeps the memory independent of the document: every object of a station
// file has fewer fields than that, and an object with more is refused for its unknown ones.
// `json` must be valid JSON.
void findDuplicateKeys(const QByteArray& json, const std::function<void(const QString&)>& found,
                       qsizetype keysPerObject = 64);

}  // namespace sim
