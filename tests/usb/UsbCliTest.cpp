#include "core/SimulatorConnection.h"
#include "support/SimulatedStation.h"

#include <QDeadlineTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMultiHash>
#include <QProcess>

#include <gtest/gtest.h>

#include <functional>

namespace {

constexpr quint32 hubSerial = 0x1C3B4A01;  // the first hub of the default station

// tarvel-sim with the default station, fast, on a socket of its own, and tarvel-cli pointed at
// it with a private preferences store and log folder.
class UsbCommandsAgainstSimulator : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(station.start({}, 30), station.socket()); }

    void TearDown() override {
        watcher.terminate();
        if (!watcher.waitForFinished(5000))
            watcher.kill();
    }

    // Reads the watcher's JSON lines until `done` holds for the lines so far.
    bool readWatchUntil(const std::function<bool(const QList<QJsonObject>&)>& done,
                        int milliseconds) {
        const QDeadlineTimer deadline(milliseconds);
        while (!done(watchLines) && !deadline.hasExpired()) {
            watcher.waitForReadyRead(100);
            while (watcher.canReadLine())
                watchLines << QJsonDocument::fromJson(watcher.readLine()).object();
        }
        return done(watchLines);
    }

    // Port 1 of the first hub, where the Mac at 0x01110000 hangs.
    bool setFirstPortEnabled(bool enabled) {
        core::SimulatorConnection connection(station.socket());
        const auto link =
            connection.request("stem.connect", {{"linkType", 1}, {"serial", qint64(hubSerial)}});
        const auto reply =
            connection.request("stem.port.setEnabled", {{"serial", qint64(hubSerial)},
                                                        {"link", link->value("link")},
                                                        {"index", 1},
                                                        {"value", enabled ? 1 : 0}});
        return reply && reply->value("result").toInt(-1) == 0;
    }

    testing_support::SimulatedStation station;
    QProcess watcher;
    QList<QJsonObject> watchLines;
};

TEST_F(UsbCommandsAgainstSimulator, ListShowsHubsAndMacsWithTheirFacts) {
    const auto result = station.cli({"usb", "list", "--json"});
    ASSERT_EQ(result.exitCode, 0) << result.standardError.toStdString();
    const QJsonArray devices = QJsonDocument::fromJson(result.standardOutput.toUtf8()).array();
    QMultiHash<QString, QJsonObject> byLocation;
    for (const QJsonValue& device : devices)
        byLocation.insert(device["locationID"].toString(), device.toObject());

    // The hub and the billboard beside it share a location; the hub came first.
    const QList<QJsonObject> atHub = byLocation.values("0x01100000");
    ASSERT_EQ(atHub.size(), 2);
    const QJsonObject hub = atHub.last();  // QMultiHash answers the latest insertion first
    EXPECT_EQ(hub["vendorID"].toInt(), 0x24FF);
    EXPECT_EQ(hub["serialNumber"].toString(), "1C3B4A01");
    EXPECT_EQ(byLocation.value("0x01180000")["productName"].toString(), "USBHub3c-Stem");

    const QJsonObject mac = byLocation.value("0x01110000");
    EXPECT_EQ(mac["serialNumber"].toString(), "H4WGJ2Q7PX");
    EXPECT_TRUE(mac["ecid"].isNull());  // a booted Mac does not show its ECID on USB
    // Vendor, product, location, hub address and DFU state of that Mac.
    const auto text = station.cli({"usb", "list"});
    EXPECT_EQ(text.exitCode, 0);
    EXPECT_TRUE(text.standardOutput.contains("05AC   1905    0x01110000 0x01100000 no"))
        << text.standardOutput.toStdString();
}

// The one test here that waits for real: after the first batch the manager collects arrivals
// for five seconds, and that window is what this test is about.
TEST_F(UsbCommandsAgainstSimulator, WatchPrintsARemovalThenOneBatchedArrivalAsAPortCycles) {
    watcher.setProcessEnvironment(station.environment());
    watcher.start(testing_support::executablePath("tarvel-cli"),
                  {"--simulate=" + station.socket(), "usb", "watch", "--json"});
    ASSERT_TRUE(watcher.waitForStarted(10000));

    // What is attached at start comes as the first batch, all in one.
    ASSERT_TRUE(
        readWatchUntil([](const QList<QJsonObject>& lines) { return lines.size() >= 4; }, 10000));
    for (const QJsonObject& line : watchLines) {
        EXPECT_EQ(line["event"].toString(), "deviceAdded");
        EXPECT_EQ(line["batch"].toInt(), 1);
    }
    readWatchUntil([](const QList<QJsonObject>&) { return false; }, 300);  // the rest of it
    const qsizetype present = watchLines.size();

    ASSERT_TRUE(setFirstPortEnabled(false));
    ASSERT_TRUE(readWatchUntil(
        [&](const QList<QJsonObject>& lines) { return lines.size() > present; }, 5000));
    const QJsonObject removed = watchLines[present];
    EXPECT_EQ(removed["event"].toString(), "deviceRemoved");
    EXPECT_EQ(removed["locationID"].toString(), "0x01110000");
    EXPECT_EQ(removed["serialNumber"].toString(), "H4WGJ2Q7PX");

    ASSERT_TRUE(setFirstPortEnabled(true));
    ASSERT_TRUE(readWatchUntil(
        [&](const QList<QJsonObject>& lines) { return lines.size() > present + 1; }, 15000));
    const QJsonObject added = watchLines[present + 1];
    EXPECT_EQ(added["event"].toString(), "deviceAdded");
    EXPECT_EQ(added["locationID"].toString(), "0x01110000");
    EXPECT_EQ(added["batch"].toInt(), removed["batch"].toInt() + 1);
    EXPECT_EQ(watchLines.size(), present + 2);
}

TEST_F(UsbCommandsAgainstSimulator, FollowingWatchWaitsForTheSimulatorToComeBack) {
    watcher.setProcessEnvironment(station.environment());
    watcher.start(testing_support::executablePath("tarvel-cli"),
                  {"--simulate=" + station.socket(), "usb", "watch", "--follow"});
    ASSERT_TRUE(watcher.waitForReadyRead(10000)) << "the watch lists what is attached first";
    QByteArray errors;
    auto readErrorsUntil = [&](const QByteArray& wanted, int milliseconds) {
        const QDeadlineTimer deadline(milliseconds);
        while (!errors.contains(wanted) && !deadline.hasExpired() &&
               watcher.state() == QProcess::Running) {
            watcher.waitForReadyRead(100);
            watcher.readAllStandardOutput();
            errors += watcher.readAllStandardError();
        }
        return errors.contains(wanted);
    };

    station.simulator().kill();
    ASSERT_TRUE(station.simulator().waitForFinished(5000));
    ASSERT_TRUE(readErrorsUntil("the simulator closed its socket; trying again every second", 5000))
        << errors.toStdString();
    EXPECT_EQ(watcher.state(), QProcess::Running);

    ASSERT_EQ(station.start({}, 30), station.socket()) << "the same socket again";
    ASSERT_TRUE(readErrorsUntil("is back; watching again", 5000)) << errors.toStdString();

    // Watching again, not merely saying so: a port cycled now is seen.
    ASSERT_TRUE(setFirstPortEnabled(false));
    QByteArray output;
    testing_support::readOutputUntil(watcher, output, "deviceRemoved", 5000);
    EXPECT_TRUE(output.contains("deviceRemoved (1)")) << output.toStdString();
}

TEST(UsbCommandsAgainstAStation, AnEcidTooLargeForTheRegistryIsLeftOutNotFatal) {
    testing_support::SimulatedStation station;
    ASSERT_FALSE(station
                     .start({"--station", station.writeStation(R"({"hubs": [{"serial": 1, "macs": [
                         {"port": 1, "ecid": "0xFFFFFFFFFFFFFFFF", "serialNumber": "BIGMAC0001", "state": "dfu"}]}]})")})
                     .isEmpty());
    const auto result = station.cli({"usb", "list", "--json"});
    ASSERT_EQ(result.exitCode, 0) << result.standardError.toStdString();
    bool found = false;
    for (const QJsonValue& device :
         QJsonDocument::fromJson(result.standardOutput.toUtf8()).array()) {
        if (device["locationID"].toString() != "0x01110000")
            continue;
        found = true;
        EXPECT_TRUE(device["ecid"].isNull());
    }
    EXPECT_TRUE(found);
}

}  // namespace
