#include "core/Log.h"
#include "core/NotificationCenter.h"
#include "core/SettingsKeys.h"
#include "core/ZMRUnifiedLogger.h"
#include "support/TestSettings.h"
#include "support/VirtualClock.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

using testing_support::TestSettings;
using testing_support::VirtualClock;

class LoggerTest : public ::testing::Test {
  protected:
    LoggerTest()
        : logger({dir.path(), "test.log", false}, settings.settings(), clock,
                 {[this](const QByteArray& b) { standardError += b; },
                  [this](const QByteArray& b) { standardOutput += b; },
                  [this](const QByteArray& b) { notices += b; }},
                 "Tarvel(4711)") {}

    QStringList fileLines() const {
        QFile file(logger.logFileURL());
        if (!file.open(QIODevice::ReadOnly))
            return {};
        return QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
    }

    QTemporaryDir dir;
    TestSettings settings;
    VirtualClock clock;
    QByteArray standardError;
    QByteArray standardOutput;
    QByteArray notices;
    ZMRUnifiedLogger logger;
};

const QString kTimestamp = QStringLiteral(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d\d:\d\d)");

TEST_F(LoggerTest, WritesTimestampProcessAndMessage) {
    logger.logString("Hub 0x1A2B connected\nsecond", 1);  // written as it is
    const QStringList lines = fileLines();
    ASSERT_EQ(lines.size(), 2);
    EXPECT_EQ(lines[1], "second");
    EXPECT_TRUE(QRegularExpression("^" + kTimestamp + R"( Tarvel\(4711\): Hub 0x1A2B connected$)")
                    .match(lines[0])
                    .hasMatch())
        << lines[0].toStdString();
    EXPECT_EQ(standardError, "Hub 0x1A2B connected\nsecond\n");
    EXPECT_TRUE(standardOutput.isEmpty());
}

TEST_F(LoggerTest, CollapsesRepeatsWithinTwoSecondsOfTheLastWrittenLine) {
    for (int i = 0; i < 5; ++i) {
        logger.logString("same", 0);
        clock.advanceMilliseconds(300);
    }
    EXPECT_EQ(fileLines().size(), 1);
    EXPECT_EQ(logger.repeated(), 4);
    logger.logString("different", 1);

    const QStringList lines = fileLines();
    ASSERT_EQ(lines.size(), 3);
    EXPECT_TRUE(QRegularExpression("^" + kTimestamp + ":Last message repeated 4 times$")
                    .match(lines[1])
                    .hasMatch())
        << lines[1].toStdString();
    EXPECT_TRUE(lines[2].endsWith(" Tarvel(4711): different"));
    EXPECT_EQ(standardError.count('\n'), 6);  // collapsed lines still reach standard error
    EXPECT_EQ(logger.repeated(), 0);
}

TEST_F(LoggerTest, RepeatWindowIsMeasuredFromTheLastWrittenLine) {
    logger.logString("tick", 1);
    clock.advanceMilliseconds(1500);
    logger.logString("tick", 1);  // collapsed
    clock.advanceMilliseconds(1000);
    logger.logString("tick", 1);  // 2.5 s after the written line: written, after its summary
    const QStringList lines = fileLines();
    ASSERT_EQ(lines.size(), 3);
    EXPECT_TRUE(lines[1].endsWith(":Last message repeated 1 times"));
    EXPECT_TRUE(lines[2].endsWith(": tick"));
}

TEST_F(LoggerTest, LongBurstsAreCopiedToStandardOutputPastTheThreshold) {
    logger.logString("flood", 1);
    for (int i = 0; i < 1003; ++i) logger.logString("flood", 1);
    EXPECT_EQ(logger.repeated(), 1003);
    EXPECT_EQ(standardOutput, "flood\nflood\n");
    EXPECT_EQ(fileLines().size(), 1);
}

TEST_F(LoggerTest, DebugLinesFollowTheSettingAtEachCall) {
    logger.logString("hidden", ZMRUnifiedLogger::levelDebug);
    EXPECT_TRUE(standardError.isEmpty());
    EXPECT_FALSE(QFile::exists(logger.logFileURL()));

    settings.settings().setValue(core::keys::showDebug, true);
    logger.logString("shown", ZMRUnifiedLogger::levelDebug);
    ASSERT_EQ(fileLines().size(), 1);
    EXPECT_TRUE(fileLines()[0].endsWith(": shown"));
    EXPECT_EQ(standardError, "shown\n");
}

TEST_F(LoggerTest, ALinkInPlaceOfTheLogFileIsNeitherFollowedNorReplaced) {
    QTemporaryDir elsewhere;
    const QString target = elsewhere.filePath("precious");
    QFile precious(target);
    ASSERT_TRUE(precious.open(QIODevice::WriteOnly));
    precious.write("kept\n");
    precious.close();
    ASSERT_TRUE(QFile::link(target, logger.logFileURL()));

    int posted = 0;
    auto& center = core::NotificationCenter::defaultCenter();
    const auto token = center.addObserver(ZMRUnifiedLogger::writeProblemNotification,
                                          [&](const QString&, const QVariantMap&) { ++posted; });
    logger.logString("first", 1);
    logger.logString("second", 1);
    center.removeObserver(token);

    ASSERT_TRUE(precious.open(QIODevice::ReadOnly));
    EXPECT_EQ(precious.readAll(), "kept\n");
    EXPECT_TRUE(QFileInfo(logger.logFileURL()).isSymLink());
    EXPECT_EQ(notices.count('\n'), 1) << notices.toStdString();
    EXPECT_TRUE(notices.startsWith("Tarvel(4711): Cannot write the log file " +
                                   logger.logFileURL().toUtf8()));
    EXPECT_EQ(posted, 1);
    EXPECT_FALSE(logger.writeProblem().isEmpty());
    EXPECT_EQ(standardError, "first\nsecond\n") << "the echo goes on";
}

TEST_F(LoggerTest, AFifoInPlaceOfTheLogFileNeitherBlocksNorTakesTheLines) {
    ASSERT_EQ(::mkfifo(QFile::encodeName(logger.logFileURL()).constData(), 0600), 0);
    logger.logString("line", 1);  // would block for ever opening a FIFO nobody reads
    EXPECT_EQ(notices.count('\n'), 1);
}

// Root writes anywhere, so the folder belongs to another account and the check runs as that
// account, in a child of its own.
TEST(LoggerDeathTest, AnUnwritableFolderIsSaidOnceOnStandardErrorAndLoggingGoesOn) {
    const auto run = [] {
        QByteArray folder = "/tmp/tarvel-readonly-XXXXXX";
        if (!::mkdtemp(folder.data()) || ::chmod(folder.constData(), 0555) != 0)
            std::_Exit(3);
        if (::geteuid() == 0 && (::chown(folder.constData(), 65534, 65534) != 0 ||
                                 ::setgid(65534) != 0 || ::setuid(65534) != 0))
            std::_Exit(4);
        TestSettings settings;
        VirtualClock clock;
        QByteArray notices;
        ZMRUnifiedLogger logger(
            {QString::fromLatin1(folder), "generic.log", false}, settings.settings(), clock,
            {nullptr, nullptr, [&](const QByteArray& b) { notices += b; }}, "tarvel(1)");
        for (int i = 0; i < 3; ++i) logger.logString(QString::number(i), 1);
        const bool once = notices.count('\n') == 1 && notices.contains("Permission denied");
        ::chmod(folder.constData(), 0700);
        ::rmdir(folder.constData());
        std::fputs(notices.constData(), stderr);
        std::_Exit(once ? 0 : 1);
    };
    EXPECT_EXIT(run(), ::testing::ExitedWithCode(0),
                "tarvel\\(1\\): Cannot write the log file /tmp/tarvel-readonly-.*/generic.log "
                "\\(Permission denied\\); log lines are not kept");
}

TEST(LoggerTimestamp, UsesTheLocalNumericOffset) {
    const QByteArray saved = qgetenv("TZ");
    const QDateTime moment(QDate(2024, 1, 15), QTime(12, 0, 0), Qt::UTC);
    for (auto [zone, text] : {std::pair{"Asia/Kolkata", "2024-01-15T17:30:00+05:30"},
                              std::pair{"America/St_Johns", "2024-01-15T08:30:00-03:30"},
                              std::pair{"UTC", "2024-01-15T12:00:00+00:00"}}) {
        qputenv("TZ", zone);
        tzset();
        EXPECT_EQ(iso8601LocalTimestamp(moment), text) << zone;
    }
    if (saved.isEmpty())
        qunsetenv("TZ");
    else
        qputenv("TZ", saved);
    tzset();
}

TEST(LogFunctions, SystemLogEntriesKeepNewlinesOnOneLine) {
    EXPECT_EQ(core::sourceLocatedMessage("x", "", 1, "f"), "");
    EXPECT_EQ(core::systemLogEntry("a\nb\n"), "TARVEL_LOG:a\\nb\\n");
}

}  // namespace
