#include "support/ProcessRun.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

using testing_support::runExecutable;

TEST(TarvelPty, RunsTheCommandOnATerminalAndPassesItsStatusOn) {
    QTemporaryDir dir;
    const auto environment = QProcessEnvironment::systemEnvironment();
    const QString transcript = dir.filePath("transcript");
    const auto result = runExecutable(
        "tarvel-pty", {"-q", transcript, "/bin/sh", "-c", "test -t 1 && echo on-a-tty; exit 5"},
        environment);
    EXPECT_EQ(result.exitCode, 5);
    // The terminal turns line ends into "\r\n", as on any terminal.
    EXPECT_EQ(result.standardOutput, "on-a-tty\r\n");
    QFile file(transcript);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), "on-a-tty\r\n");

    const QStringList missing{"-q", "/dev/null", dir.filePath("missing")};
    EXPECT_EQ(runExecutable("tarvel-pty", missing, environment).exitCode, 127);
    EXPECT_EQ(runExecutable("tarvel-pty", {"-q"}, environment).exitCode, 64);
}

}  // namespace
