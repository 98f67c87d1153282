#include "core/SimulatorConnection.h"
#include "support/SimulatedStation.h"

#include <QDeadlineTimer>
#include <QJsonDocument>
#include <QJsonObject>
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
    QProcess watcher;  // killed, if still running, when it goes
    QList<QJsonObject> watchLines;
};

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

}  // namespace
