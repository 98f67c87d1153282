#include "support/SimulatedStation.h"

#include <QJsonObject>
#include <QRegularExpression>
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
             << "dfu done on 10 ports";
    EXPECT_EQ(dfu.standardOutput.split('\n', Qt::SkipEmptyParts), expected);

    EXPECT_TRUE(macsReach("dfu", 10));
}

// Against hardware a DFU message without the power-delivery pass goes nowhere; the simulator
// holds a client to that.
TEST_F(StationCommands, DfuMessageWithoutThePowerRolePassLeavesTheMacBooted) {
    ASSERT_FALSE(station.start().isEmpty());
    const ProcessResult dfu = station.cli({"port", "dfu", "1C3B4A01:2"});
    ASSERT_EQ(dfu.exitCode, 0) << "the wire reports no failure";
    QThread::msleep(200);  // ten simulated seconds, well past the DFU delay
    for (const auto& mac : station.macs())
        EXPECT_NE(mac.toObject().value("state").toString(), "dfu")
            << mac.toObject().value("port").toInt();
}

TEST_F(StationCommands, RecoveryRebootsMacsDuringStartUpIntoRecovery) {
    station.setPreference("acronameRecoveryRebootTimes", 4);
    ASSERT_FALSE(station.start().isEmpty());
    const ProcessResult recovery = station.cli({"recovery", "1C3B4A01:1", "1c3b4a01:2"});
    ASSERT_EQ(recovery.exitCode, 0) << recovery.standardError.toStdString();
    EXPECT_TRUE(recovery.standardOutput.contains("Restarting 4 of 4 times\nFinishing Up...\n"));
    EXPECT_TRUE(macsReach("recovery", 2));
}

TEST_F(StationCommands, AFailedDfuCommandIsNamedThoughTheSequenceEndsWithSuccess) {
    const QString file = station.writeStation(R"({"hubs": [{"serial": "0x00C0FFEE",
        "faults": [{"call": "pd.setUEIBytes", "index": 2, "results": [6], "repeat": true}],
        "macs": [{"port": 1, "ecid": "0x1", "serialNumber": "AAAA000001"},
                 {"port": 2, "ecid": "0x2", "serialNumber": "AAAA000002"}]}]})");
    ASSERT_FALSE(station.start({"--station", file}).isEmpty());
    const ProcessResult dfu = station.cli({"dfu", "C0FFEE:1", "C0FFEE:2"});
    EXPECT_EQ(dfu.exitCode, 0);
    EXPECT_TRUE(dfu.standardError.contains("dfu failed on C0FFEE:2 (DFU command)"))
        << dfu.standardError.toStdString();
    EXPECT_TRUE(dfu.standardOutput.contains("Refreshing Devices...\nFinishing Up...\n"));

    // A port that cannot even be power-cycled ends the sequence with failure.
    SimulatedStation broken;
    const QString file2 = broken.writeStation(R"({"hubs": [{"serial": "0x00C0FFEE",
        "faults": [{"call": "port.setEnabled", "index": 1, "results": [6], "repeat": true}],
        "macs": [{"port": 1, "ecid": "0x1", "serialNumber": "AAAA000001"}]}]})");
    ASSERT_FALSE(broken.start({"--station", file2}).isEmpty());
    const ProcessResult restart = broken.cli({"restart", "C0FFEE:1"});
    EXPECT_EQ(restart.exitCode, 1);
    EXPECT_TRUE(restart.standardError.contains("restart failed on C0FFEE:1 (disable)"))
        << restart.standardError.toStdString();
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
