#include "support/SimulatedStation.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QProcess>

#include <functional>

#include <gtest/gtest.h>

#include <signal.h>

namespace {

// The day's outcome of every Mac as the board's JSON events tell it.
struct Day {
    QMap<QString, QString> outcomeOfSerial;  // the last end of each Mac's cycle
    QMap<QString, QString> reasonOfSerial;
    QJsonObject summary;
    int cycleEnds = 0;
};

bool endsCycle(const QString& state) {
    return state == "done" || state == "failed" || state == "needs_attention";
}

Day readDay(const QByteArray& output) {
    Day day;
    for (const QByteArray& line : output.split('\n')) {
        const QJsonObject event = QJsonDocument::fromJson(line).object();
        if (event.value("event") == "summary")
            day.summary = event;
        if (event.value("event") != "port" || !endsCycle(event.value("state").toString()))
            continue;
        ++day.cycleEnds;
        day.outcomeOfSerial[event.value("serialNumber").toString()] =
            event.value("state").toString();
        day.reasonOfSerial[event.value("serialNumber").toString()] =
            event.value("reason").toString();
    }
    return day;
}

int countCycleEnds(const QByteArray& output) { return readDay(output).cycleEnds; }

class CliAuto : public ::testing::Test {
  protected:
    void SetUp() override {
        station_.setPreference("timeBetweenProcesses", "3");
        station_.setPreference("shouldPlaySound", false);
        station_.setPreference("unattendedMaxRestores", 4);
    }
    // Runs `auto` until `enough` says the output is complete, then Ctrl-C; answers everything it
    // printed.
    QByteArray runUntil(const QStringList& arguments,
                        const std::function<bool(const QByteArray&)>& enough, int milliseconds) {
        QProcess cli;
        EXPECT_TRUE(station_.startCli(cli, arguments));
        QByteArray output;
        const QDeadlineTimer deadline(milliseconds);
        while (!enough(output) && !deadline.hasExpired() && cli.state() == QProcess::Running) {
            cli.waitForReadyRead(100);
            output += cli.readAllStandardOutput();
        }
        ::kill(static_cast<pid_t>(cli.processId()), SIGINT);
        EXPECT_TRUE(cli.waitForFinished(20000));
        output += cli.readAllStandardOutput();
        exitCode_ = cli.exitCode();
        errors_ = cli.readAllStandardError();
        return output;
    }

    testing_support::SimulatedStation station_;
    int exitCode_ = -1;
    QByteArray errors_;
};

QByteArray benchDay() {
    QFile file(QStringLiteral(TARVEL_SOURCE_DIR "/sim/stations/bench-day.json"));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Twenty Macs plugged one after another into ten ports: two pulled in the middle of their
// restores, one that ignores the DFU message, one whose restore fails. Every Mac ends as it
// should, the history of the restore queue agrees, and the day's summary counts them.
TEST_F(CliAuto, ASimulatedDayEndsEveryMacAsItShould) {
    ASSERT_FALSE(station_.start({"--station", station_.writeStation(benchDay())}, 20).isEmpty());
    const QByteArray output = runUntil({"auto", "--restore", "--json"},
                                       [](const QByteArray& out) { return countCycleEnds(out) >= 20; },
                                       150000);
    const std::string shown = output.toStdString() + errors_.toStdString();
    const Day day = readDay(output);
    ASSERT_EQ(day.cycleEnds, 20) << shown;
    EXPECT_EQ(exitCode_, 1) << "a day with failures fails\n" << shown;

    for (int n = 1; n <= 10; ++n)
        for (const char* which : {"A", "B"}) {
            const QString serial = QStringLiteral("DAY%1%2").arg(n, 2, 10, QLatin1Char('0'))
                                     .arg(QLatin1String(which));
            const bool pulledMidRestore = (n == 2 && *which == 'B') || (n == 10 && *which == 'A');
            const bool restoreFails = n == 4 && *which == 'B';
            const bool ignoresDfu = n == 8 && *which == 'A';
            const QString expected = ignoresDfu                           ? "needs_attention"
                                     : pulledMidRestore || restoreFails ? "failed"
                                                                         : "done";
            EXPECT_EQ(day.outcomeOfSerial.value(serial), expected) << serial.toStdString() << "\n"
                                                                   << shown;
        }
    EXPECT_EQ(day.reasonOfSerial.value("DAY08A"), "not in DFU mode after 3 DFU sequences");
    EXPECT_TRUE(day.reasonOfSerial.value("DAY04B").contains("error restoring")) << shown;

    const QJsonObject summary = day.summary;
    EXPECT_EQ(summary.value("restored").toInt(), 16) << shown;
    EXPECT_EQ(summary.value("failed").toInt(), 3);
    EXPECT_EQ(summary.value("needsAttention").toInt(), 1);
    EXPECT_EQ(summary.value("underWay").toInt(), 0);
    EXPECT_EQ(summary.value("status").toInt(), 1);
    // The restore queue's history: a record for every restore, none for the Mac that never
    // reached DFU mode.
    const QJsonArray history = summary.value("history").toArray();
    EXPECT_EQ(history.size(), 19);
    int restored = 0;
    for (const QJsonValue& record : history)
        restored += record.toObject().value("message") == "Restored Successfully";
    EXPECT_EQ(restored, summary.value("restored").toInt());
}

// Macs already on the bench count as just plugged in; a port whose hub refuses the DFU message
// fails alone, the others' cycles go on; the board on a pipe is a line per change.
TEST_F(CliAuto, AFailingPortLeavesTheOthersAlone) {
    const QByteArray bench = R"({"timing": {"bootSeconds": 4},
      "hubs": [{"serial": "0x1C3B4A01",
        "faults": [{"call": "pd.setUEIBytes", "index": 2, "results": [6], "repeat": true}],
        "macs": [{"port": 1, "ecid": "0xE1", "serialNumber": "HERE1"},
                 {"port": 2, "ecid": "0xE2", "serialNumber": "HERE2"},
                 {"port": 3, "ecid": "0xE3", "serialNumber": "HERE3", "state": "dfu"}]}]})";
    ASSERT_FALSE(station_.start({"--station", station_.writeStation(bench)}, 20).isEmpty());
    const QByteArray output = runUntil(
        {"auto", "--ports", "1C3B4A01:1", "1C3B4A01:2", "1C3B4A01:3"},
        [](const QByteArray& out) {
            return out.count("1C3B4A01:1 - done") + out.count("1C3B4A01:3 - done") +
                       out.count("1C3B4A01:2 - failed") >= 3;
        },
        60000);
    const std::string shown = output.toStdString() + errors_.toStdString();
    EXPECT_TRUE(output.contains("1C3B4A01:1 - DFU")) << shown;
    EXPECT_TRUE(output.contains("1C3B4A01:1 - done")) << shown;
    EXPECT_TRUE(output.contains("1C3B4A01:3 - done")) << "arrived in DFU mode\n" << shown;
    EXPECT_FALSE(output.contains("1C3B4A01:3 - DFU")) << "no sequence for a Mac already in DFU";
    EXPECT_TRUE(output.contains("1C3B4A01:2 - failed (DFU sequence: DFU message, result 6)"))
        << shown;
    EXPECT_FALSE(output.contains("1C3B4A01:4")) << "only the ports asked for";
    EXPECT_EQ(exitCode_, 1) << shown;
    EXPECT_TRUE(output.contains("auto: restored 0 · failed 1 · needs attention 0")) << shown;
}

// Ctrl-C in the middle of the day cancels the restores under way, as `restore` does: each is
// recorded as cancelled, no Mac is left restoring, and the run says so with 130.
TEST_F(CliAuto, CtrlCMidDayCancelsWhatIsUnderWay) {
    // Restores long enough (30 s at this speed) that Ctrl-C lands in one on a loaded machine too;
    // with the day's own 1.5 s a restore could end on its own before the cancel reached it.
    QByteArray station = benchDay();
    station.replace(R"("restoreSeconds": 30)", R"("restoreSeconds": 600)");
    ASSERT_FALSE(station_.start({"--station", station_.writeStation(station)}, 20).isEmpty());
    const QByteArray output =
        runUntil({"auto", "--restore", "--json"},
                 [](const QByteArray& out) { return out.contains(R"("state":"restoring")"); },
                 60000);
    const std::string shown = output.toStdString() + errors_.toStdString();
    const Day day = readDay(output);
    EXPECT_EQ(exitCode_, 130) << shown;
    EXPECT_GE(day.summary.value("cancelled").toInt(), 1) << shown;
    EXPECT_EQ(day.summary.value("underWay").toInt(), 0) << shown;
    bool cancelledRecord = false;
    for (const QJsonValue& record : day.summary.value("history").toArray())
        cancelledRecord |= record.toObject().value("message") == "Restore Cancelled";
    EXPECT_TRUE(cancelledRecord) << shown;
    for (const QJsonValue& mac : station_.macs())
        EXPECT_NE(mac.toObject().value("state").toString(), "restoring") << shown;
}

}  // namespace
