#include "support/SimulatedStation.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QProcess>

#include <gtest/gtest.h>

#include <signal.h>

#include <utility>

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

QByteArray benchDay() {
    QFile file(QStringLiteral(TARVEL_SOURCE_DIR "/sim/stations/bench-day.json"));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Twenty Macs plugged one after another into ten ports: two pulled in the middle of their
// restores, one that ignores the DFU message, one whose restore fails. Every Mac ends as it
// should, the history of the restore queue agrees, and the day's summary counts them.
TEST(CliAuto, ASimulatedDayEndsEveryMacAsItShould) {
    testing_support::SimulatedStation station;
    station.setPreference("timeBetweenProcesses", "3");
    station.setPreference("shouldPlaySound", false);
    station.setPreference("unattendedMaxRestores", 4);
    ASSERT_FALSE(station.start({"--station", station.writeStation(benchDay())}, 20).isEmpty());
    QProcess cli;
    ASSERT_TRUE(station.startCli(cli, {"auto", "--restore", "--json"}));
    QByteArray output;
    const QDeadlineTimer deadline(150000);
    while (readDay(output).cycleEnds < 20 && !deadline.hasExpired() &&
           cli.state() == QProcess::Running) {
        cli.waitForReadyRead(100);
        output += cli.readAllStandardOutput();
    }
    ::kill(static_cast<pid_t>(cli.processId()), SIGINT);
    EXPECT_TRUE(cli.waitForFinished(20000));
    output += cli.readAllStandardOutput();
    const std::string shown = output.toStdString() + cli.readAllStandardError().toStdString();
    const Day day = readDay(output);
    ASSERT_EQ(day.cycleEnds, 20) << shown;
    EXPECT_EQ(cli.exitCode(), 1) << "a day with failures fails\n" << shown;

    for (int n = 1; n <= 10; ++n)
        for (const char* which : {"A", "B"}) {
            const QString serial =
                QStringLiteral("DAY%1%2").arg(n, 2, 10, QLatin1Char('0')).arg(QLatin1String(which));
            const bool pulledMidRestore = (n == 2 && *which == 'B') || (n == 10 && *which == 'A');
            const bool restoreFails = n == 4 && *which == 'B';
            const bool ignoresDfu = n == 8 && *which == 'A';
            const QString expected = ignoresDfu                         ? "needs_attention"
                                     : pulledMidRestore || restoreFails ? "failed"
                                                                        : "done";
            EXPECT_EQ(day.outcomeOfSerial.value(serial), expected) << serial.toStdString() << "\n"
                                                                   << shown;
        }
    EXPECT_EQ(day.reasonOfSerial.value("DAY08A"), "not in DFU mode after 3 DFU sequences");
    EXPECT_TRUE(day.reasonOfSerial.value("DAY04B").contains("error restoring")) << shown;

    for (const auto& [key, count] : {std::pair{"restored", 16},
                                     {"failed", 3},
                                     {"needsAttention", 1},
                                     {"underWay", 0},
                                     {"status", 1}})
        EXPECT_EQ(day.summary.value(key).toInt(), count) << key << "\n" << shown;
    // The restore queue's history: a record for every restore, none for the Mac that never
    // reached DFU mode.
    const QJsonArray history = day.summary.value("history").toArray();
    EXPECT_EQ(history.size(), 19);
    int restored = 0;
    for (const QJsonValue& record : history)
        restored += record.toObject().value("message") == "Restored Successfully";
    EXPECT_EQ(restored, 16);
}

}  // namespace
