#include "support/SimulatedStation.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QThread>

#include <gtest/gtest.h>

namespace {

using testing_support::ProcessResult;
using testing_support::SimulatedStation;

// The hub sequences through tarvel-cli against a real simulator, with the shipped hub delays:
// tarvel-cli runs its pauses on the simulator's time scale, so a fast simulator makes them short
// without letting the client get ahead of the simulated Macs.
class StationCommands : public ::testing::Test {
  protected:
    // The simulator's Macs re-enumerate on their own clock: waits up to five seconds for `count`
    // of them to be in `state`.
    bool macsReach(const QString& state, int count) const {
        for (int attempt = 0; attempt < 50; ++attempt) {
            int in = 0;
            for (const auto& mac : station.macs())
                in += mac.toObject().value("state").toString() == state;
            if (in == count)
                return true;
            QThread::msleep(100);
        }
        return false;
    }

    // The sequence's own texts and the verdict: what a plain run prints without the port lines
    // and the check afterwards.
    static QString headlines(const QString& output) {
        QStringList lines;
        for (const QString& line : output.split('\n', Qt::SkipEmptyParts))
            if (!line.startsWith("  ") && !line.startsWith("Checking the Macs"))
                lines << line;
        return lines.join('\n');
    }

    // Two hubs with five Macs each, like the default station; `faults` goes into the first hub,
    // `extra` into the Mac on its second port.
    QString tenMacStation(const QByteArray& faults, const QByteArray& extra = {}) const {
        QByteArrayList hubs;
        for (int hub = 1; hub <= 2; ++hub) {
            QByteArrayList macs;
            for (int port = 1; port <= 5; ++port) {
                const QByteArray id = QByteArray::number(hub * 10 + port);
                macs << R"({"port": )" + QByteArray::number(port) + R"(, "ecid": "0x)" + id +
                            R"(", "serialNumber": "AAAA0000)" + id + '"' +
                            (hub == 1 && port == 2 && !extra.isEmpty() ? ", " + extra
                                                                       : QByteArray()) +
                            '}';
            }
            hubs << R"({"serial": "0x1C3B4A0)" + QByteArray::number(hub) + R"(", "usbID": )" +
                        QByteArray::number(hub) + R"(, "faults": [)" +
                        (hub == 1 ? faults : QByteArray()) + R"(], "macs": [)" + macs.join(',') +
                        "]}";
        }
        return station.writeStation(R"({"hubs": [)" + hubs.join(',') + "]}");
    }

    QString log() const {
        QString text;
        for (const QFileInfo& file : QDir(station.logFolder()).entryInfoList(QDir::Files)) {
            QFile log(file.filePath());
            if (log.open(QIODevice::ReadOnly))
                text += QString::fromUtf8(log.readAll());
        }
        return text;
    }

    SimulatedStation station;
};

TEST_F(StationCommands, HubsListsTheTenUsablePorts) {
    ASSERT_FALSE(station.start().isEmpty());
    const ProcessResult hubs = station.cli({"hubs"});
    ASSERT_EQ(hubs.exitCode, 0) << hubs.standardError.toStdString();
    const QStringList lines = hubs.standardOutput.split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 11);
    EXPECT_TRUE(lines[0].startsWith("Hub Serial"));
    EXPECT_TRUE(lines[1].contains(
        QRegularExpression(R"(^1C3B4A01\s+2\.10\.4\s+1\s+5\.0\s+\d+\.\d\s+\d+\.\d\s+yes$)")))
        << lines[1].toStdString();
    EXPECT_TRUE(hubs.standardError.isEmpty()) << hubs.standardError.toStdString();
}

TEST_F(StationCommands, DfuAllPrintsTheUpdatesInOrderAndEveryMacEndsInDfu) {
    ASSERT_FALSE(station.start().isEmpty());
    const ProcessResult dfu = station.cli({"dfu", "--all"});
    ASSERT_EQ(dfu.exitCode, 0) << dfu.standardError.toStdString();
    QStringList expected{"Putting devices into DFU mode (setting power role)",
                         "Putting devices into DFU mode (sending DFU command)"};
    for (int i = 0; i < 10; ++i) expected << "Putting ports into DFU Mode...";
    expected << "Finishing Up..."
             << "dfu: 10 of 10 ports done";
    EXPECT_EQ(headlines(dfu.standardOutput), expected.join('\n'));
    EXPECT_TRUE(
        dfu.standardOutput.contains("Checking the Macs: 10 of 10 in DFU mode\ndfu: 10 of 10"));
    EXPECT_TRUE(dfu.standardOutput.contains("  port 3 of 10 · 1C3B4A01:3 · settling 3 s\n"));
    EXPECT_TRUE(dfu.standardOutput.contains("  1C3B4A02:5 done\n"));
    EXPECT_FALSE(dfu.standardOutput.contains('\033')) << "piped output has no control characters";

    EXPECT_TRUE(macsReach("dfu", 10));
}

TEST_F(StationCommands, RecoveryRebootsMacsDuringStartUpIntoRecovery) {
    station.setPreference("acronameRecoveryRebootTimes", 4);
    ASSERT_FALSE(station.start().isEmpty());
    const ProcessResult recovery = station.cli({"recovery", "1C3B4A01:1", "1c3b4a01:2"});
    ASSERT_EQ(recovery.exitCode, 0) << recovery.standardError.toStdString();
    EXPECT_TRUE(
        headlines(recovery.standardOutput)
            .contains("Restarting 4 of 4 times\nFinishing Up...\nrecovery: 2 of 2 ports done"))
        << recovery.standardOutput.toStdString();
    EXPECT_TRUE(macsReach("recovery", 2));
}

TEST_F(StationCommands, DfuAsJsonLinesNamesEveryPortAndEndsWithTheVerdict) {
    ASSERT_FALSE(station.start().isEmpty());
    const ProcessResult dfu = station.cli({"dfu", "--all", "--json"});
    ASSERT_EQ(dfu.exitCode, 0) << dfu.standardError.toStdString();
    QSet<QString> ports;
    QJsonObject last;
    double time = 0;
    for (const QString& line : dfu.standardOutput.split('\n', Qt::SkipEmptyParts)) {
        QJsonParseError error{};
        last = QJsonDocument::fromJson(line.toUtf8(), &error).object();
        ASSERT_EQ(error.error, QJsonParseError::NoError) << line.toStdString();
        EXPECT_GE(last.value("time").toDouble(), time) << "time never goes back";
        time = last.value("time").toDouble();
        if (last.value("event") == "result" && last.value("ok").toBool())
            ports << last.value("port").toString();
    }
    EXPECT_EQ(ports.size(), 10);
    EXPECT_EQ(last.value("event"), "verdict");
    EXPECT_TRUE(last.value("ok").toBool());
    EXPECT_EQ(last.value("summary"), "10 of 10 ports done");
}

// Seven hubs worked at once take about as long as one: the power-role pass of 35 ports one after
// another alone would be 140 s of the station's time (2.8 s here); all at once it is 20 s.
TEST_F(StationCommands, SevenHubsInParallelPutAllThirtyFiveMacsIntoDfuInTheTimeOfOne) {
    QByteArrayList hubs;
    for (int hub = 1; hub <= 7; ++hub) {
        QByteArrayList macs;
        for (int port = 1; port <= 5; ++port)
            macs << QStringLiteral(R"({"port": %1, "ecid": "0x%2", "serialNumber": "BENCH%2"})")
                        .arg(port)
                        .arg(hub * 10 + port)
                        .toUtf8();
        hubs << QStringLiteral(R"({"serial": "0x5EA00%1", "usbID": %1, "macs": [%2]})")
                    .arg(hub)
                    .arg(QString::fromUtf8(macs.join(',')))
                    .toUtf8();
    }
    ASSERT_FALSE(
        station.start({"--station", station.writeStation(R"({"hubs": [)" + hubs.join(',') + "]}")})
            .isEmpty());
    const ProcessResult dfu = station.cli({"--parallel", "dfu", "--all", "--json"});
    ASSERT_EQ(dfu.exitCode, 0) << dfu.standardError.toStdString();

    QStringList firstSteps;
    double settingPowerRoleEnds = 0;
    QJsonObject last;
    for (const QString& line : dfu.standardOutput.split('\n', Qt::SkipEmptyParts)) {
        last = QJsonDocument::fromJson(line.toUtf8()).object();
        const QString hub = last.value("port").toString().section(':', 0, 0);
        if (last.value("event") == "step" && !firstSteps.contains(hub))
            firstSteps << hub;
        if (last.value("event") == "pause" && settingPowerRoleEnds == 0)
            settingPowerRoleEnds = last.value("time").toDouble();
    }
    EXPECT_EQ(firstSteps.size(), 7);
    EXPECT_LT(settingPowerRoleEnds, 1.5) << "the pass took the time of five ports, not 35";
    EXPECT_EQ(last.value("summary"), "35 of 35 ports done");
    EXPECT_TRUE(macsReach("dfu", 35));
}

TEST_F(StationCommands, AHardDfuMessageErrorFailsTheRunAndSaysWhatHappenedToEveryPort) {
    const QString file =
        tenMacStation(R"({"call": "pd.setUEIBytes", "index": 3, "results": [6], "repeat": true})");
    ASSERT_FALSE(station.start({"--station", file}).isEmpty())
        << station.simulator().readAllStandardError().toStdString();
    const ProcessResult dfu = station.cli({"dfu", "--all"});
    EXPECT_EQ(dfu.exitCode, 1);
    const QString verdict =
        "dfu: 2 of 10 ports done; failed: 1C3B4A01:3 (DFU message, result 6); partly done: "
        "1C3B4A01:4 (power-cycled, DFU message not sent), 1C3B4A01:5 (power-cycled, DFU message "
        "not sent), 1C3B4A02:1 (power-cycled, DFU message not sent), 1C3B4A02:2 (power-cycled, "
        "DFU message not sent), 1C3B4A02:3 (power-cycled, DFU message not sent), 1C3B4A02:4 "
        "(power-cycled, DFU message not sent), 1C3B4A02:5 (power-cycled, DFU message not sent)";
    EXPECT_EQ(dfu.standardError.trimmed(), "tarvel-cli: " + verdict);
    EXPECT_TRUE(dfu.standardOutput.contains("Refreshing Devices...\nFinishing Up...\n"))
        << "the sequence's own texts are unchanged";
    EXPECT_FALSE(dfu.standardOutput.contains("ports done"));
    EXPECT_TRUE(log().contains("dfu: port failed: 1C3B4A01:3 (DFU message, result 6)"));
    EXPECT_TRUE(log().contains(verdict));

    // A port that cannot even be power-cycled stops a restart before any message.
    SimulatedStation broken;
    const QString file2 = broken.writeStation(R"({"hubs": [{"serial": "0x00C0FFEE",
        "faults": [{"call": "port.setEnabled", "index": 1, "results": [6], "repeat": true}],
        "macs": [{"port": 1, "ecid": "0x1", "serialNumber": "AAAA000001"},
                 {"port": 2, "ecid": "0x2", "serialNumber": "AAAA000002"}]}]})");
    ASSERT_FALSE(broken.start({"--station", file2}).isEmpty());
    const ProcessResult stopped = broken.cli({"restart", "C0FFEE:1", "C0FFEE:2"});
    EXPECT_EQ(stopped.exitCode, 1);
    EXPECT_EQ(stopped.standardError.trimmed(),
              "tarvel-cli: restart: 0 of 2 ports done; failed: C0FFEE:1 (disable, result 6); not "
              "reached: C0FFEE:2");
}

TEST_F(StationCommands, AMacThatIgnoresDfuIsNamedByTheCheckAfterwards) {
    station.setPreference("verifyTimeoutSeconds", 10);
    ASSERT_FALSE(
        station.start({"--station", tenMacStation({}, R"("ignoresDFU": true)")}).isEmpty());
    const ProcessResult dfu = station.cli({"dfu", "--all"});
    EXPECT_EQ(dfu.exitCode, 1);
    EXPECT_TRUE(dfu.standardOutput.contains("Checking the Macs: 9 of 10 in DFU mode\n"));
    EXPECT_EQ(dfu.standardError,
              "1C3B4A01:2: Mac still booted after 10 s\ntarvel-cli: dfu: 10 of 10 ports done; "
              "unverified: 1C3B4A01:2 (Mac still booted after 10 s)\n");
    EXPECT_TRUE(log().contains("dfu: 1C3B4A01:2: Mac still booted after 10 s"));

    const ProcessResult unchecked = station.cli({"dfu", "1C3B4A01:2", "--no-verify"});
    EXPECT_EQ(unchecked.exitCode, 0) << unchecked.standardError.toStdString();
    EXPECT_FALSE(unchecked.standardOutput.contains("Checking the Macs"));

    // A timeout no one can wait out is replaced by the shipped one, and the log says so.
    station.setPreference("verifyTimeoutSeconds", 1e30);
    const ProcessResult bounded = station.cli({"dfu", "1C3B4A01:2"});
    EXPECT_EQ(bounded.exitCode, 1);
    EXPECT_TRUE(bounded.standardError.contains("Mac still booted after 30 s"))
        << bounded.standardError.toStdString();
    EXPECT_TRUE(
        log().contains("Setting verifyTimeoutSeconds: \"1e+30\" is not a number from 0 to "
                       "600; using 30"));
}

TEST_F(StationCommands, BadTargetsAreClearErrors) {
    ASSERT_FALSE(station.start().isEmpty());
    const ProcessResult unknown = station.cli({"restart", "1C3B4A01:6"});
    EXPECT_EQ(unknown.exitCode, 1);
    EXPECT_TRUE(unknown.standardError.contains("no usable port 1C3B4A01:6"))
        << unknown.standardError.toStdString();
    EXPECT_EQ(station.cli({"restart"}).exitCode, 2);
    EXPECT_EQ(station.cli({"power-mode", "turbo", "--all"}).exitCode, 2);
}

}  // namespace
