#include "support/Scripts.h"

#include "configurator/ZMTaskWrapperWithBlocks.h"
#include "support/VirtualClock.h"

#include <QDir>

#include <QThread>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <optional>

namespace {

using testing_support::runLoopUntil;
using testing_support::Scripts;

// Everything one run handed to its callbacks.
struct Recorder {
    int starts = 0;
    QStringList output;
    QStringList errors;
    std::vector<int> ends;
    std::optional<int> pidAtStart;

    std::shared_ptr<ZMTaskWrapperWithBlocks> make(const QStringList& arguments,
                                                  core::Clock& clock = core::Clock::system()) {
        auto runner = std::make_shared<ZMTaskWrapperWithBlocks>(
            [this] {
                ++starts;
                pidAtStart = self->pid();
            },
            [this](int status) { ends.push_back(status); },
            [this](const QString& chunk) {
                output << chunk;
                if (onChunk)
                    onChunk();
            },
            [this](const QString& chunk) {
                errors << chunk;
                if (onChunk)
                    onChunk();
            },
            arguments, clock);
        self = runner.get();
        return runner;
    }
    bool ended(size_t count = 1) {
        return runLoopUntil([&] { return ends.size() >= count; });
    }
    ZMTaskWrapperWithBlocks* self = nullptr;
    // Runs after every chunk of either stream has been kept.
    std::function<void()> onChunk;
};

// Lets a child that waits reading the fifo `gate` go on.
void openGate(const QString& gate) {
    const int fd = ::open(gate.toLocal8Bit().constData(), O_WRONLY);
    [[maybe_unused]] const ssize_t written = ::write(fd, "\n", 1);
    ::close(fd);
}

bool processGone(pid_t pid) {
    return ::kill(pid, 0) != 0 && errno == ESRCH;
}

int openDescriptors() {
    return static_cast<int>(QDir("/proc/self/fd").entryList(QDir::Files | QDir::System).size());
}

TEST(TaskWrapper, BeforeStartOrAfterAFailedLaunchThereIsNoChildAndNoEnd) {
    Recorder record;
    auto runner = record.make({"/nonexistent/tool", "list"});
    EXPECT_EQ(runner->pid(), -1);
    EXPECT_FALSE(runner->isRunning());
    runner->terminate();
    EXPECT_EQ(runner->terminationStatus(), -1);
    EXPECT_EQ(record.starts, 0);

    runner->startProcess();
    QCoreApplication::processEvents();
    EXPECT_EQ(record.starts, 1);
    EXPECT_TRUE(record.ends.empty());
    EXPECT_TRUE(record.output.isEmpty());
    EXPECT_FALSE(runner->isRunning());
    EXPECT_EQ(runner->pid(), -1);
}

TEST(TaskWrapper, OneElementArrayRunsTheProgramWithoutArgumentsAndCanRunAgain) {
    Scripts scripts;
    const QString count = scripts.write("count", "echo \"$#:$0\"");
    Recorder record;
    auto runner = record.make({count});
    runner->startProcess();
    ASSERT_TRUE(record.ended());
    EXPECT_EQ(record.pidAtStart, -1) << "the start callback runs before any child exists";
    EXPECT_EQ(record.output, QStringList{"0:" + count + "\n"});
    EXPECT_EQ(record.ends, std::vector<int>{0});
    EXPECT_FALSE(runner->isRunning());

    const QString args = scripts.write("args", "echo \"$#:$1:$2\"; exit 4");
    Recorder second;
    auto withArguments = second.make({args, "a b", "c"});
    withArguments->startProcess();
    withArguments->startProcess();  // a used runner starts afresh
    ASSERT_TRUE(second.ended());
    EXPECT_EQ(second.starts, 2);
    EXPECT_EQ(second.output, QStringList{"2:a b:c\n"});
    EXPECT_EQ(second.ends, std::vector<int>{4});
    EXPECT_EQ(withArguments->terminationStatus(), 4);
}

TEST(TaskWrapper, ChildThatClosesItsOutputButKeepsRunningIsTerminatedOrKilled) {
    Scripts scripts;
    Recorder record;
    auto runner = record.make({scripts.write("linger", "echo bye; exec 1>&-; exec sleep 30")});
    runner->startProcess();
    const pid_t pid = runner->pid();
    ASSERT_GT(pid, 0);
    ASSERT_TRUE(record.ended());
    EXPECT_EQ(record.output, QStringList{"bye\n"});
    EXPECT_EQ(record.ends, std::vector<int>{SIGTERM});
    EXPECT_EQ(runner->terminationStatus(), SIGTERM);
    EXPECT_TRUE(processGone(pid)) << "reaped, not left a zombie";

    // One that ignores termination is killed after the grace, waited for real: the grace is
    // measured on the host's clock on purpose.
    Recorder stubborn;
    auto ignoring = stubborn.make(
        {scripts.write("stubborn", "trap '' TERM; echo bye; exec 1>&-; exec sleep 30")});
    ignoring->startProcess();
    ASSERT_TRUE(stubborn.ended());
    EXPECT_EQ(stubborn.ends, std::vector<int>{SIGKILL});
}

TEST(TaskWrapper, ChunksArriveAsTheyFallAndStandardErrorNeverEndsTheRun) {
    Scripts scripts;
    // One fifo per wait: the child blocks on gate N until a callback opens it, so no two writes
    // can meet in the pipe.
    const QString gate = scripts.path("gate");
    for (int n = 1; n <= 4; ++n)
        ASSERT_EQ(::mkfifo((gate + QString::number(n)).toLocal8Bit().constData(), 0600), 0);
    const QString child = scripts.write(
        "chunks",
        "printf 'abc'; read _ < \"${1}1\"; printf 'def\\nghi'; read _ < \"${1}2\"; "
        "printf 'oops' >&2; exec 2>&-; read _ < \"${1}3\"; printf '\\377'; read _ < \"${1}4\"; "
        "printf '\\n'; exit 9");
    Recorder record;
    int gates = 0;
    record.onChunk = [&] {
        if (++gates <= 4)
            openGate(gate + QString::number(gates));
    };
    auto runner = record.make({child, gate});
    runner->startProcess();
    ASSERT_TRUE(record.ended());
    ASSERT_EQ(record.output.size(), 4);
    EXPECT_EQ(record.output[0], "abc");
    EXPECT_EQ(record.output[1], "def\nghi");
    EXPECT_TRUE(record.output[2].isNull()) << "bytes that are not UTF-8 give a null string";
    EXPECT_EQ(record.output[3], "\n");
    EXPECT_EQ(record.errors, QStringList{"oops"});
    EXPECT_EQ(record.ends, std::vector<int>{9});
}

// The reason a tool gives on standard error just before it ends must not be lost to the end of
// its standard output, whichever of the two the loop hears first.
TEST(TaskWrapper, StandardErrorWrittenBeforeTheEndIsReadBeforeTheEnd) {
    Scripts scripts;
    const QString child =
        scripts.write("last-words", "printf 'x'; sleep 0.1; printf 'reason' >&2; exit 1");
    Recorder record;
    // A busy loop: the child's reason and its end are both waiting when the loop looks again.
    record.onChunk = [] { QThread::msleep(400); };
    auto runner = record.make({child});
    runner->startProcess();
    ASSERT_TRUE(record.ended());
    EXPECT_EQ(record.errors, QStringList{"reason"});
}

TEST(TaskWrapper, WhatTheChildWritesInOneGoIsOneChunkAndNoChunkPassesTheCap) {
    Scripts scripts;
    const QString gate = scripts.path("gate");
    ASSERT_EQ(::mkfifo(gate.toLocal8Bit().constData(), 0600), 0);
    // Three writes of 20 KiB in a row, the second cutting a UTF-8 sequence in two, then output
    // kept open until the first chunk has been handed over, so the end of file cannot gather it.
    const QString piecewise = scripts.write(
        "piecewise",
        "x=$(printf '%20480s' ''); printf '%s\\342\\200' \"$x\"; printf '\\224%s' \"$x\"; "
        "printf '%s' \"$x\"; read _ < \"$1\"; printf 'later'");
    Recorder record;
    record.onChunk = [&] {
        if (record.output.size() == 1)
            openGate(gate);
    };
    auto runner = record.make({piecewise, gate});
    runner->startProcess();
    ASSERT_TRUE(record.ended());
    ASSERT_EQ(record.output.size(), 2);
    EXPECT_EQ(record.output[0],
              QString(20480, ' ') + QString::fromUtf8("\u2014") + QString(2 * 20480, ' '));
    EXPECT_EQ(record.output[1], "later");

    // Megabytes written without a pause are one chunk, far below the cap, nothing lost.
    const QString flood = scripts.write("flood", "head -c 3000000 /dev/zero | tr '\\0' 'z'");
    Recorder flooded;
    auto floodRunner = flooded.make({flood});
    floodRunner->startProcess();
    ASSERT_TRUE(flooded.ended());
    EXPECT_EQ(flooded.output.join(QString()), QString(3000000, 'z'));
}

TEST(TaskWrapper, StatusOfAChildStillRunningAfterTheGraceIsMinus999) {
    Scripts scripts;
    testing_support::VirtualClock clock;
    Recorder record;
    auto runner = record.make({scripts.write("forever", "exec sleep 30")}, clock);
    runner->startProcess();
    ASSERT_TRUE(runner->isRunning());
    EXPECT_EQ(runner->terminationStatus(), ZMTaskWrapperWithBlocks::stillRunningStatus);
    using Sleep = testing_support::VirtualClock::Sleep;
    const std::vector<Sleep> grace{Sleep{Sleep::Unit::Seconds, 5}};
    EXPECT_EQ(clock.sleeps(), grace);

    runner->stopProcess();
    EXPECT_EQ(record.ends, std::vector<int>{SIGTERM});
    EXPECT_EQ(runner->terminationStatus(), SIGTERM);
    EXPECT_EQ(clock.sleeps().size(), 1u) << "an ended child needs no grace";
}

TEST(TaskWrapper, FiveHundredRunsLeakNoDescriptorAndNoChild) {
    Scripts scripts;
    const QString child = scripts.write("chatty", "echo out; echo err >&2");
    const QString lingering = scripts.write("lingering", "exec 1>&-; exec sleep 30");
    // One Qt-internal descriptor may appear on first use of the loop; measure after warming up.
    {
        Recorder warm;
        auto r = warm.make({child});
        r->startProcess();
        ASSERT_TRUE(warm.ended());
    }
    const int before = openDescriptors();
    for (int i = 0; i < 500; ++i) {
        Recorder record;
        auto runner = record.make({i % 50 == 0 ? lingering : child});
        runner->startProcess();
        ASSERT_TRUE(record.ended()) << "run " << i;
    }
    // A runner dropped while its child still runs must not leave that child behind either.
    {
        Recorder dropped;
        auto runner = dropped.make({lingering});
        runner->startProcess();
        ::kill(runner->pid(), SIGKILL);
    }
    QCoreApplication::processEvents();
    EXPECT_EQ(openDescriptors(), before);
    ASSERT_TRUE(
        runLoopUntil([] { return ::waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD; }));
}

}  // namespace
