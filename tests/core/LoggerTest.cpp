#include "core/Log.h"
#include "core/SettingsKeys.h"
#include "core/ZMRUnifiedLogger.h"
#include "support/TestSettings.h"
#include "support/VirtualClock.h"

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

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
                  [this](const QByteArray& b) { standardOutput += b; }},
                 "Tarvel(4711)") {}

    QStringList fileLines() const {
        QFile file(logger.logFileURL());
        if (!file.open(QIODevice::ReadOnly)) return {};
        return QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
    }

    QTemporaryDir dir;
    TestSettings settings;
    VirtualClock clock;
    QByteArray standardError;
    QByteArray standardOutput;
    ZMRUnifiedLogger logger;
};

const QString kTimestamp = QStringLiteral(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d\d:\d\d)");

TEST_F(LoggerTest, WritesTimestampProcessAndMessage) {
    logger.logString("Hub 0x1A2B connected", 1);
    const QStringList lines = fileLines();
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(QRegularExpression("^" + kTimestamp + R"( Tarvel\(4711\): Hub 0x1A2B connected$)")
                    .match(lines[0])
                    .hasMatch())
        << lines[0].toStdString();
    EXPECT_EQ(standardError, "Hub 0x1A2B connected\n");
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

TEST_F(LoggerTest, MultiLineMessagesAreWrittenAsTheyAre) {
    logger.logString("first\nsecond", 1);
    const QStringList lines = fileLines();
    ASSERT_EQ(lines.size(), 2);
    EXPECT_EQ(lines[1], "second");
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
