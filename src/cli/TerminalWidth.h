#pragma once

#include <sys/ioctl.h>
#include <unistd.h>

namespace cli {

// Columns of the terminal standard output goes to; 80 when it is not a terminal.
inline int terminalWidth() {
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return size.ws_col;
    return 80;
}

}  // namespace cli
