#include "PtySession.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace pty {
namespace {

int signalPipe[2] = {-1, -1};

void onSignal(int number) {
    const int saved = errno;
    const unsigned char byte = static_cast<unsigned char>(number);
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[1], &byte, 1);
    errno = saved;
}

bool writeAll(int fd, const char* data, size_t size) {
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        data += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

bool installHandlers() {
    if (::pipe2(signalPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return false;
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    for (int number : {SIGTERM, SIGINT, SIGHUP, SIGCHLD}) sigaction(number, &action, nullptr);
    // A reader that went away must not kill us before the command's status is known.
    signal(SIGPIPE, SIG_IGN);
    return true;
}

[[noreturn]] void execCommand(const std::vector<std::string>& command) {
    std::vector<char*> argv;
    for (const std::string& word : command) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    for (int number : {SIGTERM, SIGINT, SIGHUP, SIGCHLD, SIGPIPE}) signal(number, SIG_DFL);
    ::execvp(argv.front(), argv.data());
    std::fprintf(stderr, "tarvel-pty: %s: %s\n", argv.front(), std::strerror(errno));
    ::_exit(errno == ENOENT ? 127 : 126);
}

// Copies what the terminal has for us; false once it has nothing more to give.
bool copyTerminalOutput(int master, int transcript, bool* stdoutOpen) {
    char buffer[16384];
    const ssize_t count = ::read(master, buffer, sizeof buffer);
    if (count < 0 && (errno == EINTR || errno == EAGAIN))
        return true;
    if (count <= 0)
        return false;  // EIO: every holder of the terminal's other side is gone
    const auto size = static_cast<size_t>(count);
    if (*stdoutOpen)
        *stdoutOpen = writeAll(STDOUT_FILENO, buffer, size);
    if (transcript >= 0)
        writeAll(transcript, buffer, size);
    return true;
}

void forwardInput(int master, bool* stdinOpen) {
    char buffer[4096];
    const ssize_t count = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (count < 0 && (errno == EINTR || errno == EAGAIN))
        return;
    if (count <= 0 || !writeAll(master, buffer, static_cast<size_t>(count)))
        *stdinOpen = false;
}

// Passes the signals that arrived on to the command. One bounded read a turn: a parent may send
// SIGTERM in a tight loop until we are gone, and draining until empty would then never end, so
// the command would never be reaped and we would never get to die.
void forwardSignals(pid_t child, int* forwardedSignal) {
    unsigned char numbers[64];
    const ssize_t count = ::read(signalPipe[0], numbers, sizeof numbers);
    bool sent[NSIG] = {};
    for (ssize_t i = 0; i < count; ++i) {
        const int number = numbers[i];
        if (number == SIGCHLD || number >= NSIG || sent[number])
            continue;
        if (*forwardedSignal == 0)
            *forwardedSignal = number;
        ::kill(child, number);
        sent[number] = true;
    }
}

bool reap(pid_t child, Ending* ending) {
    int status = 0;
    const pid_t answer = ::waitpid(child, &status, WNOHANG);
    if (answer != child)
        return false;
    ending->signaled = WIFSIGNALED(status);
    ending->code = ending->signaled ? WTERMSIG(status) : WEXITSTATUS(status);
    return true;
}

}  // namespace

bool runSession(const std::vector<std::string>& command, int transcript, Ending* ending,
                int* forwardedSignal, std::string* error) {
    if (!installHandlers()) {
        *error = std::strerror(errno);
        return false;
    }
    struct winsize size {};
    size.ws_row = 24;
    size.ws_col = 80;
    int master = -1;
    const pid_t child = ::forkpty(&master, nullptr, nullptr, &size);
    if (child < 0) {
        *error = std::strerror(errno);
        return false;
    }
    if (child == 0)
        execCommand(command);
    ::fcntl(master, F_SETFD, FD_CLOEXEC);

    bool stdoutOpen = true;
    bool stdinOpen = true;
    bool terminalOpen = true;
    bool ended = false;
    while (!ended || terminalOpen) {
        pollfd fds[3] = {
            {signalPipe[0], POLLIN, 0}, {master, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
        const nfds_t count = stdinOpen && !ended ? 3 : 2;
        if (!terminalOpen)
            fds[1].fd = -1;
        // Once the command is gone, whatever is still buffered in the terminal is drained
        // without waiting for descendants that may keep it open.
        if (::poll(fds, count, ended ? 0 : -1) < 0 && errno != EINTR)
            break;
        if (fds[0].revents & POLLIN)
            forwardSignals(child, forwardedSignal);
        if (terminalOpen && (fds[1].revents & (POLLIN | POLLHUP | POLLERR)))
            terminalOpen = copyTerminalOutput(master, transcript, &stdoutOpen);
        else if (ended)
            terminalOpen = false;
        if (count == 3 && (fds[2].revents & (POLLIN | POLLHUP | POLLERR)))
            forwardInput(master, &stdinOpen);
        if (!ended)
            ended = reap(child, ending);
    }
    while (!ended) {
        int status = 0;
        if (::waitpid(child, &status, 0) == child) {
            ending->signaled = WIFSIGNALED(status);
            ending->code = ending->signaled ? WTERMSIG(status) : WEXITSTATUS(status);
            ended = true;
        } else if (errno != EINTR) {
            break;
        }
    }
    ::close(master);
    return true;
}

}  // namespace pty
