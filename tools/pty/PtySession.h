#pragma once

#include <string>
#include <vector>

namespace pty {

// How the command ended: its exit code, or the signal that ended it.
struct Ending {
    bool signaled = false;
    int code = 0;
};

// Runs `command` on a new pseudo-terminal until it ends, copying everything it writes to standard
// output and to `transcript`, and what arrives on standard input to the terminal. A SIGTERM, SIGINT
// or SIGHUP we receive is passed on to the command; `forwardedSignal` then holds the first one.
// Answers false with `error` set when the session cannot be set up.
bool runSession(const std::vector<std::string>& command, int transcript, Ending* ending,
                int* forwardedSignal, std::string* error);

}  // namespace pty
