#include "configurator/ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <QFile>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>
#include <vector>

extern char** environ;

namespace configurator {
namespace {

void closeDescriptor(int& fd) {
    if (fd >= 0)
        ::close(fd);
    fd = -1;
}

struct Pipe {
    int read = -1;
    int write = -1;
    bool open() {
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC) != 0)
            return false;
        read = fds[0];
        write = fds[1];
        return true;
    }
    void close() {
        closeDescriptor(read);
        closeDescriptor(write);
    }
};

int statusFrom(int waitStatus) {
    if (WIFEXITED(waitStatus))
        return WEXITSTATUS(waitStatus);
    if (WIFSIGNALED(waitStatus))
        return WTERMSIG(waitStatus);
    return -1;
}

// posix_spawn reports a failed exec as its own error, so a path that cannot run leaves no child.
int spawnWithPipes(const QStringList& arguments, const QString& workingDirectory, const Pipe& in,
                   const Pipe& out, const Pipe& err, pid_t* pid) {
    std::vector<QByteArray> words;
    words.reserve(static_cast<size_t>(arguments.size()));
    for (const QString& argument : arguments) words.push_back(argument.toLocal8Bit());
    std::vector<char*> argv;
    for (QByteArray& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in.read, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out.write, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err.write, STDERR_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    const QByteArray folder = QFile::encodeName(workingDirectory);
    if (!folder.isEmpty())
        posix_spawn_file_actions_addchdir_np(&actions, folder.constData());

    // The child starts with default signal handling and nothing blocked, whatever the parent
    // did for itself (the command line catches SIGINT, for one).
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(
        &attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);

    const int result =
        ::posix_spawn(pid, argv.front(), &actions, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return result;
}

}  // namespace

std::unique_ptr<ChildProcess> ChildProcess::spawn(const QStringList& arguments, QString* error,
                                                 const QString& workingDirectory) {
    if (arguments.isEmpty()) {
        if (error)
            *error = QStringLiteral("no launch path");
        return nullptr;
    }
    Pipe in, out, err;
    if (!in.open() || !out.open() || !err.open()) {
        if (error)
            *error = QString::fromLocal8Bit(std::strerror(errno));
        in.close();
        out.close();
        err.close();
        return nullptr;
    }
    pid_t pid = -1;
    const int result = spawnWithPipes(arguments, workingDirectory, in, out, err, &pid);
    closeDescriptor(in.read);
    closeDescriptor(out.write);
    closeDescriptor(err.write);
    if (result != 0) {
        if (error)
            *error = QString::fromLocal8Bit(std::strerror(result));
        in.close();
        out.close();
        err.close();
        return nullptr;
    }
    ::fcntl(out.read, F_SETFL, ::fcntl(out.read, F_GETFL) | O_NONBLOCK);
    ::fcntl(err.read, F_SETFL, ::fcntl(err.read, F_GETFL) | O_NONBLOCK);
    return std::unique_ptr<ChildProcess>(new ChildProcess(pid, in.write, out.read, err.read));
}

ChildProcess::ChildProcess(pid_t pid, int in, int out, int err)
    : pid_(pid), stdin_(in), stdout_(out), stderr_(err) {}

ChildProcess::~ChildProcess() {
    closePipes();
    if (isRunning()) {
        const pid_t pid = pid_;
        std::thread([pid] {
            int ignored = 0;
            while (::waitpid(pid, &ignored, 0) < 0 && errno == EINTR) {
            }
        }).detach();
    }
}

bool ChildProcess::isRunning() const {
    std::lock_guard lock(mutex_);
    if (reaped_)
        return false;
    int waitStatus = 0;
    pid_t answer = 0;
    do {
        answer = ::waitpid(pid_, &waitStatus, WNOHANG);
    } while (answer < 0 && errno == EINTR);
    if (answer == 0)
        return true;
    reaped_ = true;
    if (answer == pid_)
        status_ = statusFrom(waitStatus);
    return false;
}

int ChildProcess::terminationStatus() const {
    if (isRunning())
        return -1;
    std::lock_guard lock(mutex_);
    return status_;
}

void ChildProcess::sendTerminate() const {
    std::lock_guard lock(mutex_);
    // Once reaped, the number may already belong to another process.
    if (!reaped_)
        ::kill(pid_, SIGTERM);
}

void ChildProcess::sendKill() const {
    std::lock_guard lock(mutex_);
    if (!reaped_)
        ::kill(pid_, SIGKILL);
}

void ChildProcess::closePipes() {
    closeDescriptor(stdin_);
    closeDescriptor(stdout_);
    closeDescriptor(stderr_);
}

}  // namespace configurator
