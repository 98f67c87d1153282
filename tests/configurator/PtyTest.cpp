#include "support/ProcessRun.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

using testing_support::runExecutable;

TEST(TarvelPty, RunsTheCommandOnATerminalAndPassesItsStatusOn) {
    QTemporaryDir dir;
    const QString transcript = dir.filePath("transcript");
    const auto result = runExecutable(
        "tarvel-pty", {"-q", transcript, "/bin/sh", "-c", "test -t 1 && echo on-a-tty; exit 5"},
        QProcessEnvironment::systemEnvironment());
    EXPECT_EQ(result.exitCode, 5);
    // The terminal turns line ends into "\r\n", as on any terminal.
    EXPECT_EQ(result.standardOutput, "on-a-tty\r\n");
    QFile file(transcript);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), "on-a-tty\r\n");

    EXPECT_EQ(runExecutable("tarvel-pty", {"-q", "/dev/null", dir.filePath("missing")},
                            QProcessEnvironment::systemEnvironment())
                  .exitCode,
              127);
    EXPECT_EQ(runExecutable("tarvel-pty", {"-q"}, QProcessEnvironment::systemEnvironment()).exitCode, 64);
}

}  // namespace
