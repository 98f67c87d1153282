// tarvel-pty -q FILE COMMAND [ARG...]
//
// Runs COMMAND on a pseudo-terminal (so it line-buffers and shows its progress as on a
// terminal), copies its output to standard output and the transcript to FILE, and exits with the
// command's status. A SIGTERM is passed on to the command, and then we die by that same signal,
// so whoever started us sees the termination and not a success.
#include "PtySession.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr int usageStatus = 64;

int usage() {
    std::fprintf(stderr, "usage: tarvel-pty [-q] FILE COMMAND [ARG...]\n");
    return usageStatus;
}

[[noreturn]] void dieBy(int number) {
    signal(number, SIG_DFL);
    sigset_t unblock;
    sigemptyset(&unblock);
    sigaddset(&unblock, number);
    sigprocmask(SIG_UNBLOCK, &unblock, nullptr);
    raise(number);
    // Signals that do not end a process by default still must not read as success.
    _exit(128 + number);
}

}  // namespace

int main(int argc, char** argv) {
    int first = 1;
    // We never print a banner, so -q changes nothing; it is accepted for the familiar form.
    if (first < argc && std::strcmp(argv[first], "-q") == 0)
        ++first;
    if (argc - first < 2)
        return usage();
    const char* file = argv[first];
    const std::vector<std::string> command(argv + first + 1, argv + argc);

    const int transcript = ::open(file, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (transcript < 0) {
        std::fprintf(stderr, "tarvel-pty: %s: %s\n", file, std::strerror(errno));
        return 1;
    }
    pty::Ending ending;
    int forwarded = 0;
    std::string error;
    if (!pty::runSession(command, transcript, &ending, &forwarded, &error)) {
        std::fprintf(stderr, "tarvel-pty: %s\n", error.c_str());
        return 1;
    }
    ::close(transcript);
    if (forwarded != 0)
        dieBy(forwarded);
    if (ending.signaled)
        dieBy(ending.code);
    return ending.code;
}
