#include "core/SimulatorConnection.h"
#include "support/ProcessRun.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <functional>

namespace {

constexpr quint32 hubSerial = 0x1C3B4A01;  // the first hub of the default station

// tarvel-sim with the default station, fast, on a socket of its own, and tarvel-cli pointed at
// it with a private preferences store and log folder.
class UsbCommandsAgainstSimulator : public ::testing::Test {
  protected:
    void SetUp() override {
        QDir().mkpath(config.filePath("logs"));
        QSettings seed(config.filePath("kestrune.com/Tarvel.conf"), QSettings::IniFormat);
        seed.setValue("LogFolderPath", config.filePath("logs"));
        environment.insert("XDG_CONFIG_HOME", config.path());
        environment.remove("TARVEL_SIM");
        environment.remove("LD_PRELOAD");

        socket = config.filePath("sim.sock");
        simulator.setProcessEnvironment(environment);
        simulator.start(testing_support::executablePath("tarvel-sim"),
                        {"--socket", socket, "--speed", "30"});
        ASSERT_TRUE(simulator.waitForStarted(10000));
        ASSERT_TRUE(simulator.waitForReadyRead(10000)) << simulator.readAllStandardError().data();
        ASSERT_EQ(QString::fromUtf8(simulator.readLine()).trimmed(), socket);
    }

    void TearDown() override {
        for (QProcess* process : {&watcher, &simulator}) {
            process->terminate();
            if (!process->waitForFinished(5000))
                process->kill();
        }
    }

    QStringList cliArguments(const QStringList& arguments) const {
        return QStringList{"--simulate=" + socket} + arguments;
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
        core::SimulatorConnection connection(socket);
        const auto reply = connection.request(
            "stem.port.setEnabled",
            {{"serial", qint64(hubSerial)}, {"index", 1}, {"value", enabled ? 1 : 0}});
        return reply && reply->value("result").toInt(-1) == 0;
    }

    QTemporaryDir config;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    QString socket;
    QProcess simulator;
    QProcess watcher;
    QList<QJsonObject> watchLines;
};

TEST_F(UsbCommandsAgainstSimulator, ListShowsHubsAndMacsWithTheirFacts) {
    const auto result = testing_support::runExecutable(
        "tarvel-cli", cliArguments({"usb", "list", "--json"}), environment);
    ASSERT_EQ(result.exitCode, 0) << result.standardError.toStdString();
    const QJsonArray devices = QJsonDocument::fromJson(result.standardOutput.toUtf8()).array();
    ASSERT_GE(devices.size(), 4);

    const QJsonObject hub = devices[0].toObject();
    EXPECT_EQ(hub["vendorID"].toInt(), 0x24FF);
    EXPECT_EQ(hub["locationID"].toString(), "0x01100000");
    EXPECT_EQ(hub["serialNumber"].toString(), "1C3B4A01");
    EXPECT_EQ(devices[1].toObject()["productName"].toString(), "USBHub3c-Stem");

    const QJsonObject mac = devices[2].toObject();
    EXPECT_EQ(mac["vendorID"].toInt(), 0x05AC);
    EXPECT_EQ(mac["locationID"].toString(), "0x01110000");
    EXPECT_EQ(mac["hubAddress"].toString(), "0x01100000");
    EXPECT_EQ(mac["serialNumber"].toString(), "H4WGJ2Q7PX");
    EXPECT_FALSE(mac["inDFU"].toBool());
    EXPECT_TRUE(mac["ecid"].isNull());  // a booted Mac does not show its ECID on USB

    const auto text =
        testing_support::runExecutable("tarvel-cli", cliArguments({"usb", "list"}), environment);
    EXPECT_EQ(text.exitCode, 0);
    EXPECT_TRUE(text.standardOutput.contains("05AC   1905    0x01110000 0x01100000 no"))
        << text.standardOutput.toStdString();
}

TEST_F(UsbCommandsAgainstSimulator, ListFailsClearlyWithoutASimulator) {
    const auto result = testing_support::runExecutable(
        "tarvel-cli", {"--simulate=" + config.filePath("nobody.sock"), "usb", "list"}, environment);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.standardError.contains("cannot read the USB registry"))
        << result.standardError.toStdString();
}

// The one test here that waits for real: after the first batch the manager collects arrivals
// for five seconds, and that window is what this test is about.
TEST_F(UsbCommandsAgainstSimulator, WatchPrintsARemovalThenOneBatchedArrivalAsAPortCycles) {
    watcher.setProcessEnvironment(environment);
    watcher.start(testing_support::executablePath("tarvel-cli"),
                  cliArguments({"usb", "watch", "--json"}));
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
