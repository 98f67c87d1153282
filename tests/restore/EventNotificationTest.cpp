#include "support/Scripts.h"

#include "configurator/ZMTaskWrapperWithBlocks.h"
#include "restore/EventNotification.h"
#include "restore/ScriptOutputLog.h"
#include "support/VirtualClock.h"

#include <QFile>
#include <QRegularExpression>

#include <gtest/gtest.h>

namespace {

using restore::EventNotification;
using testing_support::runLoopUntil;

TEST(EventPayload, SortedKeysCompactJSONInStandardBase64) {
    const QVariantMap info{{"error", "Restore failed: see /var/log"}, {"devices", "1A,2B"}};
    EXPECT_EQ(EventNotification::payloadJSON(info),
              R"({"devices":"1A,2B","error":"Restore failed: see \/var\/log"})");
    // toBase64 is the standard alphabet, padded, in one line.
    EXPECT_EQ(EventNotification::arguments("/opt/on-event", "restoreCompleted", false, info),
              QStringList({"/opt/on-event", "restoreCompleted", "fail",
                           QString::fromLatin1(EventNotification::payloadJSON(info).toBase64())}));
    EXPECT_EQ(EventNotification::arguments("/s", "deviceAttached", true, {})[2], "success");
}

class EventScript : public ::testing::Test {
  protected:
    QStringList calls() const { return scripts.sortedLines("calls"); }

    testing_support::Scripts scripts;
    testing_support::VirtualClock clock;
    EventNotification events{clock};
};

TEST_F(EventScript, TwoEventsInQuickSuccessionBothRunAndTheLastIsKept) {
    const QString script = scripts.eventRecorder("calls");
    events.postEvent("restoreStarted", true, {{"ecid", "0x1"}}, script);
    events.postEvent("restoreCompleted", false, {{"devices", "1"}, {"error", "boom"}}, script);
    ASSERT_TRUE(runLoopUntil([&] { return calls().size() == 2; }));
    EXPECT_EQ(calls(), QStringList({R"(restoreCompleted fail {"devices":"1","error":"boom"})",
                                    R"(restoreStarted success {"ecid":"0x1"})"}));
    ASSERT_TRUE(events.taskWrapper());
    EXPECT_EQ(events.taskWrapper()->arguments()[1], "restoreCompleted");
}

TEST_F(EventScript, MissingUnsetNonExecutableAndDisabledScriptsRunNothing) {
    // Whatever was queued to the main loop has run once this marker has.
    auto flush = [] {
        bool flushed = false;
        QMetaObject::invokeMethod(
            QCoreApplication::instance(), [&] { flushed = true; }, Qt::QueuedConnection);
        return runLoopUntil([&] { return flushed; });
    };
    const QString script = scripts.eventRecorder("calls");
    QFile::setPermissions(script, QFile::ReadOwner | QFile::WriteOwner);
    events.postEvent("deviceAttached", true, {}, script);
    events.postEvent("deviceAttached", true, {}, scripts.path("absent"));
    events.postEvent("deviceAttached", true, {}, std::nullopt);
    ASSERT_TRUE(flush());

    QFile::setPermissions(script, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    events.setIsDisabled(true);
    events.postEvent("deviceAttached", true, {}, script);
    ASSERT_TRUE(flush());
    EXPECT_EQ(events.taskWrapper(), nullptr);
    EXPECT_TRUE(calls().isEmpty());
}

// A script that prints megabytes leaves a bounded trace: its first 64 KiB as log lines, then
// one line with the size of the rest, and nothing on the way is lost from the count.
TEST(EventScriptOutput, AChattyScriptIsLoggedUpTo64KiBAndTheRestIsCounted) {
    testing_support::Scripts scripts;
    testing_support::VirtualClock clock;
    QStringList logged;
    EventNotification events(clock, [&](const QString& line) { logged << line; });
    const QString script =
        scripts.write("chatty", "yes 'line of output from the script' | head -c 10000000");
    events.postEvent("restoreStarted", true, {}, script);
    ASSERT_TRUE(
        runLoopUntil([&] { return !logged.isEmpty() && logged.back().startsWith("The"); }, 60000));

    // The pipe may cut a line in two; each piece is a line of the log.
    qint64 loggedBytes = 0;
    for (const QString& line : logged.mid(0, logged.size() - 1)) {
        ASSERT_TRUE(line.startsWith("Message: ")) << line.toStdString();
        EXPECT_TRUE(QStringLiteral("line of output from the script").contains(line.mid(9)))
            << line.toStdString();
        loggedBytes += line.size() - 9 + 1;
    }
    EXPECT_LE(loggedBytes, 64 * 1024 + 16);  // a cut line counts one newline too many
    const QRegularExpressionMatch summary =
        QRegularExpression(
            "^The event script printed (\\d+) bytes more than the 64 KiB logged; "
            "they were not kept$")
            .match(logged.back());
    ASSERT_TRUE(summary.hasMatch()) << logged.back().toStdString();
    const qint64 dropped = summary.captured(1).toLongLong();
    EXPECT_GE(dropped, 10000000 - 64 * 1024);
    EXPECT_LE(dropped, 10000000 - 63 * 1024);
}

TEST(EventScriptOutput, OutputWithinTheBudgetIsLoggedLineByLineWithNoSummary) {
    QStringList logged;
    restore::ScriptOutputLog output([&](const QString& line) { logged << line; });
    output.add("Message: ", "first\n  second  \n\n");
    output.add("ErrorMessage: ", "oops\n");
    output.finish();
    EXPECT_EQ(logged, QStringList({"Message: first", "Message: second", "ErrorMessage: oops"}));

    restore::ScriptOutputLog small([&](const QString&) {});
    const QString line = QString(1023, u'é') + '\n';  // 2047 bytes of UTF-8
    for (int i = 0; i < 40; ++i) small.add("Message: ", line);
    EXPECT_EQ(small.keptBytes(), 32 * 2047);
    EXPECT_EQ(small.droppedBytes(), 8 * 2047) << "the UTF-8 size, not the characters, is counted";
}

}  // namespace
