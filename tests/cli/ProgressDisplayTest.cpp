#include "RecordedPorts.h"

#include "cli/ProgressDisplay.h"
#include "station/PortVerdict.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <gtest/gtest.h>

namespace {

using cli::ProgressDisplay;
using Step = PortProgress::Step;

// A display writing into a buffer, on a clock the test moves.
class Rendering : public ::testing::Test {
  protected:
    std::unique_ptr<ProgressDisplay> display(ProgressDisplay::Style style, int width = 80,
                                             bool color = false, bool linePerHub = false) {
        return std::make_unique<ProgressDisplay>(
            ProgressDisplay::Options{style, width, color, linePerHub},
            [this](const QByteArray& bytes) { output += bytes; }, [this] { return milliseconds; });
    }

    // Part of a DFU run: the power-role pass on port 1, a failed DFU message on port 2.
    void play(ProgressDisplay& shown) {
        shown.headline("Putting devices into DFU mode (setting power role)");
        shown.port(recorded.step(1, Step::Disable));
        milliseconds += 1200;
        shown.port(recorded.step(1, Step::Settling, 3));
        milliseconds += 1100;
        shown.tick();
        shown.port(recorded.passPause(3));
        shown.headline("Putting devices into DFU mode (sending DFU command)");
        shown.port(recorded.step(1, Step::DfuMessage));
        shown.port(recorded.done(1));
        shown.port(recorded.step(2, Step::DfuMessage));
        shown.port(recorded.failed(2, Step::DfuMessage, 6));
        shown.completion(false);
        shown.completion(true);
        verdict.record(recorded.done(1));
        verdict.record(recorded.failed(2, Step::DfuMessage, 6));
        verdict.recordCompletion(false);
        verdict.recordCompletion(true);
        shown.finish(verdict);
    }

    testing_support::RecordedPorts recorded{3};
    station::PortVerdict verdict{recorded.names()};
    QByteArray output;
    qint64 milliseconds = 0;
};

TEST_F(Rendering, PlainIsOneLinePerEventWithTheSequenceTextsAsTheyCame) {
    play(*display(ProgressDisplay::Style::Plain));
    EXPECT_EQ(QString::fromUtf8(output).split('\n'),
              QStringList({"Putting devices into DFU mode (setting power role)",
                           "  port 1 of 3 · 1C3B4A01:1 · disable",
                           "  port 1 of 3 · 1C3B4A01:1 · settling 3 s", "  all ports · pause 3 s",
                           "Putting devices into DFU mode (sending DFU command)",
                           "  port 1 of 3 · 1C3B4A01:1 · DFU message", "  1C3B4A01:1 done",
                           "  port 2 of 3 · 1C3B4A01:2 · DFU message",
                           "  1C3B4A01:2 failed: DFU message, result 6", ""}));
}

TEST_F(Rendering, JsonIsOneObjectPerEventWithAMonotonicTimeAndTheVerdictLast) {
    play(*display(ProgressDisplay::Style::Json));
    QList<QJsonObject> events;
    for (const QByteArray& line : output.split('\n')) {
        if (line.isEmpty())
            continue;
        QJsonParseError error{};
        events << QJsonDocument::fromJson(line, &error).object();
        ASSERT_EQ(error.error, QJsonParseError::NoError) << line.toStdString();
    }
    ASSERT_EQ(events.size(), 12);
    EXPECT_EQ(events[0],
              QJsonObject({{"event", "update"},
                           {"text", "Putting devices into DFU mode (setting power role)"},
                           {"time", 0.0}}));
    EXPECT_EQ(events[2], QJsonObject({{"event", "step"},
                                      {"port", "1C3B4A01:1"},
                                      {"position", 1},
                                      {"count", 3},
                                      {"step", "settling"},
                                      {"seconds", 3},
                                      {"time", 1.2}}));
    EXPECT_EQ(events[3].value("event"), "pause");
    EXPECT_EQ(events[3].value("seconds"), 3);
    EXPECT_EQ(events[8].value("event"), "result");
    EXPECT_EQ(events[8].value("ok"), false);
    EXPECT_EQ(events[8].value("result"), 6);
    EXPECT_EQ(events[9], QJsonObject({{"event", "completion"}, {"value", false}, {"time", 2.3}}));
    EXPECT_EQ(events[11].value("event"), "verdict");
    EXPECT_EQ(events[11].value("ok"), false);
}

TEST_F(Rendering, TerminalLinesFitTheWidthAndShowTheElapsedTimeAndThePort) {
    for (const int width : {100, 44}) {
        output.clear();
        milliseconds = 0;
        play(*display(ProgressDisplay::Style::Terminal, width));
        const QStringList drawn = QString::fromUtf8(output)
                                      .remove(QRegularExpression("\033\\[[0-9]*[A-Z]"))
                                      .split(QRegularExpression("[\r\n]"), Qt::SkipEmptyParts);
        ASSERT_FALSE(drawn.isEmpty());
        for (const QString& line : drawn) EXPECT_LT(line.size(), width) << line.toStdString();
        EXPECT_TRUE(drawn.contains(QRegularExpression(R"(^\[  2s\] .*1C3B4A01:1 · settling 2 s$)")))
            << "the tick redraws with the time gone by; at width " << width;
        EXPECT_TRUE(drawn.contains("1C3B4A01:2 failed: DFU message, result 6")) << width;
        EXPECT_FALSE(output.contains("\033[31m")) << "no colour unless asked";
    }
    EXPECT_TRUE(output.endsWith('\n')) << "the live line is closed for the verdict";
}

TEST_F(Rendering, TerminalFailuresAreRedWhenColourIsAllowed) {
    play(*display(ProgressDisplay::Style::Terminal, 80, true));
    EXPECT_TRUE(output.contains("\033[31m1C3B4A01:2 failed: DFU message, result 6\033[0m\n"));
}

// Lanes on two hubs: after each redraw the screen holds the live line and a line per hub, the
// cursor going back up over exactly the lines drawn before.
TEST_F(Rendering, ParallelHubsGetALineEachBelowTheLiveLine) {
    const testing_support::RecordedPorts second(3, 0x1C3B4A02);
    // One list of six ports, three on each hub.
    const auto inList = [](PortProgress event, int offset) {
        event.position += offset;
        event.count = 6;
        return event;
    };
    const auto shown = display(ProgressDisplay::Style::Terminal, 60, false, true);
    shown->headline("Putting devices into DFU mode (setting power role)");
    shown->port(inList(second.step(1, Step::Disable), 3));
    shown->port(inList(recorded.step(1, Step::Disable), 0));
    shown->port(inList(second.step(1, Step::Settling, 3), 3));
    milliseconds += 1000;
    output.clear();
    shown->tick();

    const QString screen = QString::fromUtf8(output);
    EXPECT_TRUE(screen.startsWith("\r\033[2A\033[J")) << "up over the two hub lines drawn before";
    const QStringList lines = screen.mid(screen.indexOf("\033[J") + 3).split('\n');
    ASSERT_EQ(lines.size(), 3);
    EXPECT_TRUE(lines[0].startsWith("[  1s] Putting devices")) << lines[0].toStdString();
    EXPECT_EQ(lines[1], "  1C3B4A01 | port 1 of 6 · 1C3B4A01:1 · disable")
        << "hubs in the order of their ports, though the second hub's lane spoke first";
    EXPECT_EQ(lines[2], "  1C3B4A02 | port 4 of 6 · 1C3B4A02:1 · settling 2 s");
    for (const QString& line : lines) EXPECT_LT(line.size(), 60);

    output.clear();
    shown->port(inList(second.failed(1, Step::Enable, 6), 3));
    EXPECT_TRUE(output.startsWith("\r\033[2A\033[J1C3B4A02:1 failed: enable, result 6\n"))
        << "a failure replaces the live area and stays above the redrawn one";
}

}  // namespace
