#include "hubs/stem/Backend.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace stem {

namespace {

// The library's names for its result codes, by value.
constexpr std::array<const char*, 35> kErrorNames = {
    "No error",        "Memory",        "Parameter",      "Not found",     "File name length",
    "Busy",            "IO",            "Mode",           "Write",         "Read",
    "EOF",             "Not ready",     "Permission",     "Range",         "Size",
    "Overrun",         "Parse",         "Configuration",  "Timeout",       "Initialization",
    "Version",         "Unimplemented", "Duplicate",      "Cancel",        "Packet",
    "Connection",      "Index range",   "Short command",  "Invalid entity", "Invalid option",
    "Resource",        "Media",         "Async return",   "Operation",     "Unknown",
};

}  // namespace

QString versionText(std::uint32_t build) {
    return QStringLiteral("%1.%2.%3").arg(build >> 28).arg((build >> 24) & 0xF).arg(build & 0xFFFFFF);
}

void Backend::aVersion_ParseString(std::uint32_t build, char* buffer, std::size_t length) {
    if (buffer == nullptr || length == 0) return;
    const QByteArray text = versionText(build).toUtf8();
    const std::size_t count = std::min(length - 1, static_cast<std::size_t>(text.size()));
    std::memcpy(buffer, text.constData(), count);
    buffer[count] = '\0';
}

const char* Backend::aError_GetErrorDescription(aErr error) {
    return error < kErrorNames.size() ? kErrorNames[error] : kErrorNames.back();
}

}  // namespace stem
