#pragma once

#include <QString>

#include <cstdint>

namespace core {

// A hub as every list, log line and port name shows it: its serial number in upper-case
// hexadecimal, at least two digits ("0A", "1C3B4A01").
QString hubName(std::uint32_t serialNumber);
// A hub port as commands take it and every front end shows it: "1C3B4A01:3".
QString hubPortName(std::uint32_t serialNumber, int port);
// The same, for a hub already named.
QString hubPortName(const QString& hubName, int port);

}  // namespace core
