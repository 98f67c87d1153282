#include "support/SimulatedStation.h"

#include <QDeadlineTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSet>

#include <gtest/gtest.h>

#include <signal.h>

namespace {

using testing_support::ProcessResult;

// Two Macs already in DFU on one hub; restore steps slow enough (0.4 s each at speed 50) to
// interrupt one, and a Mac whose restore fails early.
const char* kStation = R"({
  "timing": { "bootSeconds": 1, "dfuSeconds": 1, "hubResetSeconds": 1, "restoreSeconds": 200,
              "rebootsForRecovery": 3 },
  "hubs": [ { "serial": "0x1C3B4A01", "usbID": 1, "firmware": "2.10.4", "inputPowerSource": 7,
              "powerLimit": 100000, "powerLimitMax": 100000,
              "macs": [
                { "port": 1, "ecid": "0x16594A1492801E", "serialNumber": "H4WGJ2Q7PX",
                  "deviceType": "Macmini9,1", "name": "Bench A1", "state": "dfu" },
                { "port": 2, "ecid": "0xE4C91D2A07B3", "serialNumber": "F7NQ4XR2HT",
                  "deviceType": "MacBookAir10,1", "name": "Bench A2", "state": "dfu",
                  "restoreFailure": { "atProgress": 0.05, "status": 21, "message": "libusbrestore error:21",
                                      "endState": "recovery" } } ] } ]
})";

// tarvel-cli against a real tarvel-sim, its Configurator tool being tarvel-sim-cfgutil on
// tarvel-pty, as a technician runs it.
class CliConfigurator : public ::testing::Test {
  protected:
    ~CliConfigurator() override {
        if (restore.state() == QProcess::NotRunning)
            return;
        restore.kill();
        restore.waitForFinished();
    }

    QJsonArray devices() {
        const ProcessResult listed = station.cli({"devices", "--json"});
        EXPECT_EQ(listed.exitCode, 0) << listed.standardError.toStdString();
        return QJsonDocument::fromJson(listed.standardOutput.toUtf8()).array();
    }

    testing_support::SimulatedStation station;
    QProcess restore;
};

TEST_F(CliConfigurator, MacPutIntoDfuIsListedAndRestored) {
    ASSERT_EQ(station.start(), station.socket());
    EXPECT_EQ(devices().size(), 0) << "booted Macs are invisible to the tool";

    ASSERT_EQ(station.cli({"port", "power-mode", "1C3B4A01:1", "pd"}).exitCode, 0);
    ASSERT_TRUE(station.waitForContract("1C3B4A01", 1));
    ASSERT_EQ(station.cli({"port", "dfu", "1C3B4A01:1"}).exitCode, 0);
    QJsonArray listed;
    const QDeadlineTimer deadline(10000);
    while (listed.isEmpty() && !deadline.hasExpired()) listed = devices();
    ASSERT_EQ(listed.size(), 1);
    const QJsonObject mac = listed[0].toObject();
    EXPECT_EQ(mac.value("ecid").toString(), "0x16594A1492801E");
    EXPECT_EQ(mac.value("udid").toString(), "00008103-0016594A1492801E");
    EXPECT_EQ(mac.value("deviceType").toString(), "Macmini9,1");
    EXPECT_EQ(mac.value("locationID").toString(), "0x1110000");
    EXPECT_EQ(mac.value("productID").toString(), "0x1227");
    EXPECT_EQ(mac.value("serialNumber").toString(), "") << "a DFU serial is no serial number";
    EXPECT_TRUE(mac.value("inDFU").toBool());

    const ProcessResult restored = station.cli({"restore-device", "0x16594A1492801E"});
    EXPECT_EQ(restored.exitCode, 0) << restored.standardError.toStdString();
    EXPECT_TRUE(restored.standardOutput.contains("100% Restore complete"))
        << restored.standardOutput.toStdString();
    EXPECT_TRUE(restored.standardOutput.contains("Restore of 0x16594A1492801E completed."));
}

// A full bench of seven hubs, five Macs each, with the long names technicians give them: the tool
// prints one document of some 18 KiB, in more than one write.
TEST_F(CliConfigurator, AFullSevenHubBenchIsListedWhole) {
    QJsonArray hubs;
    for (int hub = 0; hub < 7; ++hub) {
        QJsonArray macs;
        for (int port = 1; port <= 5; ++port) {
            const int n = hub * 5 + port;
            macs.append(QJsonObject{
                {"port", port},
                {"ecid", QStringLiteral("0x%1").arg(0x16594A14928000 + n * 0x1111, 0, 16)},
                {"serialNumber", QStringLiteral("SN%1").arg(n, 8, 10, QChar('0'))},
                {"deviceType", "MacBookPro18,3"},
                {"name", QStringLiteral("Classroom 214 — Bench %1, port %2 — MacBook Pro (14-inch, "
                                        "2021) — asset KS-%3 — reimaged after the last lesson")
                             .arg(QChar('A' + hub))
                             .arg(port)
                             .arg(n, 6, 10, QChar('0'))},
                {"state", "dfu"}});
        }
        hubs.append(
            QJsonObject{{"serial", QStringLiteral("0x1C3B4A%1").arg(hub + 1, 2, 16, QChar('0'))},
                        {"usbID", hub + 1},
                        {"firmware", "2.10.4"},
                        {"inputPowerSource", 7},
                        {"powerLimit", 100000},
                        {"powerLimitMax", 100000},
                        {"macs", macs}});
    }
    const QByteArray bench = QJsonDocument(QJsonObject{{"hubs", hubs}}).toJson();
    ASSERT_EQ(station.start({"--station", station.writeStation(bench)}), station.socket());
    const QJsonArray listed = devices();
    ASSERT_EQ(listed.size(), 35);
    QSet<QString> names;
    for (const QJsonValue& mac : listed) names.insert(mac.toObject().value("name").toString());
    EXPECT_EQ(names.size(), 35);
    EXPECT_TRUE(names.contains(QStringLiteral(
        "Classroom 214 — Bench G, port 5 — MacBook Pro (14-inch, 2021) — asset KS-000035 — "
        "reimaged after the last lesson")));
}

// A tool that draws a terminal progress line before each JSON line: the technician hears of it
// once per device, not once per line.
TEST_F(CliConfigurator, UnreadableRestoreOutputIsWarnedOfOncePerDevice) {
    const char* garbled = R"({
      "timing": { "bootSeconds": 1, "dfuSeconds": 1, "restoreSeconds": 20 },
      "hubs": [ { "serial": "0x1C3B4A01", "usbID": 1, "firmware": "2.10.4", "inputPowerSource": 7,
                  "powerLimit": 100000, "powerLimitMax": 100000,
                  "macs": [
                    { "port": 1, "ecid": "0x16594A1492801E", "serialNumber": "H4WGJ2Q7PX",
                      "deviceType": "Macmini9,1", "name": "A1", "state": "dfu",
                      "garbledRestoreOutput": true },
                    { "port": 2, "ecid": "0xE4C91D2A07B3", "serialNumber": "F7NQ4XR2HT",
                      "deviceType": "Macmini9,1", "name": "A2", "state": "dfu",
                      "garbledRestoreOutput": true } ] } ]
    })";
    ASSERT_EQ(station.start({"--station", station.writeStation(garbled)}), station.socket());
    const QString notJson = "a line of the tool's progress is not JSON: \\x1b[2K\\x0drestore: ";

    const ProcessResult single = station.cli({"restore-device", "0x16594A1492801E"});
    EXPECT_EQ(single.exitCode, 0) << single.standardError.toStdString();
    EXPECT_EQ(single.standardOutput.count("warning: restore of 0x16594A1492801E: " + notJson), 1)
        << single.standardOutput.toStdString();

    const ProcessResult batch = station.cli({"restore", "0xE4C91D2A07B3"});
    EXPECT_EQ(batch.exitCode, 0) << batch.standardError.toStdString();
    EXPECT_EQ(batch.standardOutput.count("warning: restore of 0xE4C91D2A07B3: " + notJson), 1)
        << batch.standardOutput.toStdString();
    EXPECT_EQ(batch.standardOutput.count("warning:"), 1);
}

TEST_F(CliConfigurator, InterruptCancelsTheRestoreAndFailuresExitNonZero) {
    ASSERT_EQ(station.start({"--station", station.writeStation(kStation)}), station.socket());

    ASSERT_TRUE(station.startCli(restore, {"restore-device", "16594A1492801E"}));
    QByteArray output;
    ASSERT_TRUE(testing_support::readOutputUntil(restore, output, "Preparing restore", 10000))
        << output.toStdString();
    ::kill(static_cast<pid_t>(restore.processId()), SIGINT);
    ASSERT_TRUE(restore.waitForFinished(10000));
    output += restore.readAllStandardOutput();
    EXPECT_EQ(restore.exitCode(), 130);
    EXPECT_TRUE(output.contains(
        "Restore of 0x16594A1492801E was cancelled (the tool ended with status 15)."))
        << output.toStdString();
    EXPECT_FALSE(output.contains("Restore complete"));

    // The simulator stopped its restore: the Mac waits in DFU and restores again.
    const QJsonArray listed = devices();
    ASSERT_EQ(listed.size(), 2);
    EXPECT_TRUE(listed[0].toObject().value("inDFU").toBool());

    const ProcessResult failed = station.cli({"restore-device", "0xE4C91D2A07B3"});
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_TRUE(failed.standardError.contains("with status 1."))
        << failed.standardError.toStdString();

    const ProcessResult unknown = station.cli({"restore-device", "0x1234"});
    EXPECT_EQ(unknown.exitCode, 1);
    EXPECT_EQ(station.cli({"restore-device", "not-an-ecid"}).exitCode, 2);
}

TEST_F(CliConfigurator, CacheClearReportsTheOutcome) {
    // Nothing of Apple Configurator's exists on this machine, so there is nothing to fail on.
    const ProcessResult cleared = station.cliWithoutSimulator({"cache", "clear"});
    EXPECT_EQ(cleared.exitCode, 0) << cleared.standardError.toStdString();
    EXPECT_EQ(cleared.standardOutput, "Apple Configurator's temporary files were removed.\n");
}

}  // namespace
