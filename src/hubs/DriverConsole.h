#pragma once

#include <functional>
#include <string>

// Where the hub driver writes its diagnostics. They are console output for whoever runs the
// program and never go to the application's log file.
struct DriverConsole {
    // Text printed as is, line feeds included (standard output by default).
    std::function<void(const std::string&)> print;
    // One console log line without its line feed (standard error by default).
    std::function<void(const std::string&)> log;

    static DriverConsole standard();
    // Both kinds on standard error, for tools whose standard output carries data.
    static DriverConsole standardError();
};

// printf-style formatting for the driver's fixed texts.
std::string formatConsoleText(const char* format, ...) __attribute__((format(printf, 1, 2)));
