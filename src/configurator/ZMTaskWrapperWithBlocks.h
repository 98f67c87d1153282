#pragma once

#include "core/Clock.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <functional>
#include <memory>

class QSocketNotifier;
class QTimer;

namespace configurator {
class ChildProcess;
}

// One external command run as a child process, everything that happens to it handed to four
// callbacks on the main loop: before the start, per chunk of standard output, per chunk of
// standard error, and at the end with the exit status. A chunk of standard output is what the child
// wrote in one go: everything readable, gathered for a few milliseconds after its first bytes (up
// to 1 MiB). Only the end of standard output ends a run; a child still running then is terminated.
// Start it on the main thread.
//
// Owners that may drop the runner from inside one of its callbacks should hold it in a
// std::shared_ptr: the runner then keeps itself alive until the callback has returned.
class ZMTaskWrapperWithBlocks : public std::enable_shared_from_this<ZMTaskWrapperWithBlocks> {
  public:
    using StartBlock = std::function<void()>;
    using EndBlock = std::function<void(std::int32_t status)>;
    using OutputBlock = std::function<void(const QString& chunk)>;

    // The status meaning "still running after the grace".
    static constexpr std::int32_t stillRunningStatus = -999;
    static constexpr unsigned terminationGraceSeconds = 5;
    // How long a child that closed its output may ignore SIGTERM before it is killed.
    static constexpr unsigned killGraceSeconds = 5;
    // How long standard output is gathered after its first bytes before they are handed over.
    static constexpr int settleMilliseconds = 10;
    // The most standard output handed over as one chunk; more comes as further chunks.
    static constexpr qsizetype kChunkCap = 64 * 1024 * 1024;

    // arguments[0] is the program's path, the rest its arguments. The clock serves the grace
    // of terminationStatus().
    ZMTaskWrapperWithBlocks(StartBlock startBlock, EndBlock endBlock, OutputBlock outputBlock,
                            OutputBlock errorOutputBlock, QStringList arguments,
                            core::Clock& clock = core::Clock::wall());
    ~ZMTaskWrapperWithBlocks();
    ZMTaskWrapperWithBlocks(const ZMTaskWrapperWithBlocks&) = delete;
    ZMTaskWrapperWithBlocks& operator=(const ZMTaskWrapperWithBlocks&) = delete;

    void startProcess();
    // Stops reading, terminates the child until it is gone, then calls EndBlock with its status.
    void stopProcess();
    // Asks a running child once to terminate; calls nothing.
    void terminate();
    bool isRunning() const;
    // -1 without a launched child.
    std::int32_t pid() const;
    // The child's exit code or ending signal; a child still running after a grace of five
    // seconds (blocking the caller) yields stillRunningStatus. -1 without a launched child.
    std::int32_t terminationStatus();

    const QStringList& arguments() const { return arguments_; }

    // For a tool that prints one document and ends: its standard output is handed over as one
    // chunk when it ends (or reaches the cap), however slowly it came. Set before startProcess.
    void handOverOutputWhole() { outputWhole_ = true; }
    // For a tool that drops files in its current directory. Set before startProcess.
    void setWorkingDirectory(const QString& folder) { workingDirectory_ = folder; }

  private:
    struct NotifierDeleter {
        void operator()(QSocketNotifier* notifier) const;
    };
    using Notifier = std::unique_ptr<QSocketNotifier, NotifierDeleter>;
    struct TimerDeleter {
        void operator()(QTimer* timer) const;
    };

    void getData();
    void settled();
    void handOverOutput();
    void getStdErr();
    void unregisterReads();
    void terminateChild();
    void dropChild();

    StartBlock startBlock_;
    EndBlock endBlock_;
    OutputBlock outputBlock_;
    OutputBlock errorOutputBlock_;
    QStringList arguments_;
    core::Clock& clock_;
    std::unique_ptr<configurator::ChildProcess> task_;
    Notifier outputNotifier_;
    Notifier errorNotifier_;
    std::unique_ptr<QTimer, TimerDeleter> settleTimer_;
    QByteArray pendingOutput_;
    bool outputWhole_ = false;
    QString workingDirectory_;
};
