#pragma once

#include <QString>
#include <QStringList>

#include <sys/types.h>

#include <memory>
#include <mutex>

namespace configurator {

// One child started with a launch path and an argument vector, its standard input, output and
// error on pipes. It runs in a process group of its own, so a Ctrl-C typed at the terminal reaches
// only us and we decide how the child ends. Every descriptor we hold is close-on-exec and closed
// by the destructor; a child still running then is reaped by a background waiter, never left a
// zombie.
class ChildProcess {
  public:
    // Answers nothing when the child cannot be started; `error` then says why. A relative launch
    // path is found in `workingDirectory` when one is given.
    static std::unique_ptr<ChildProcess> spawn(const QStringList& arguments, QString* error,
                                               const QString& workingDirectory = {});

    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return pid_; }
    // Non-blocking reading ends; -1 once closed.
    int standardOutput() const { return stdout_; }
    int standardError() const { return stderr_; }

    // Reaps the child when it has ended, so the answer is exact at the moment of the call.
    bool isRunning() const;
    // The exit code, or the signal number when a signal ended it; -1 while it runs.
    int terminationStatus() const;
    void sendTerminate() const;
    void sendKill() const;

    // Ends our side of all three pipes.
    void closePipes();

  private:
    ChildProcess(pid_t pid, int in, int out, int err);

    pid_t pid_;
    int stdin_;
    int stdout_;
    int stderr_;
    // The listing asks whether its runner is running from whatever thread it is called on.
    mutable std::mutex mutex_;
    mutable bool reaped_ = false;
    mutable int status_ = -1;
};

}  // namespace configurator
