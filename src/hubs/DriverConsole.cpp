#include "hubs/DriverConsole.h"

#include <cstdarg>
#include <cstdio>
#include <vector>

namespace {

void logLine(const std::string& text) {
    std::fprintf(stderr, "%s\n", text.c_str());
    std::fflush(stderr);
}

}  // namespace

DriverConsole DriverConsole::standard() {
    return {[](const std::string& text) {
                std::fputs(text.c_str(), stdout);
                std::fflush(stdout);
            },
            logLine};
}

DriverConsole DriverConsole::standardError() {
    return {[](const std::string& text) {
                std::fputs(text.c_str(), stderr);
                std::fflush(stderr);
            },
            logLine};
}

std::string formatConsoleText(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    va_list copy;
    va_copy(copy, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string text;
    if (length > 0) {
        std::vector<char> buffer(static_cast<std::size_t>(length) + 1);
        std::vsnprintf(buffer.data(), buffer.size(), format, arguments);
        text.assign(buffer.data(), static_cast<std::size_t>(length));
    }
    va_end(arguments);
    return text;
}
