#include "support/ProcessRun.h"

#include "core/SimulatorConnection.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

namespace {

using testing_support::ProcessResult;

constexpr int kFirstHubPort3 = 0x01130000;

// A station simulator of its own for each test, fast enough that boots take a fraction of a
// second, and tarvel-cli pointed at it.
class CliHubSimulator : public ::testing::Test {
protected:
    CliHubSimulator() {
        QSettings seed(dir.filePath("kestrune.com/Tarvel.conf"), QSettings::IniFormat);
        seed.setValue("LogFolderPath", dir.filePath("logs"));
        environment.insert("XDG_CONFIG_HOME", dir.path());
        environment.remove("TARVEL_SIM");
    }
    ~CliHubSimulator() override {
        simulator.terminate();
        if (!simulator.waitForFinished(5000)) simulator.kill();
    }

    void startSimulator(const QStringList& extra = {}) {
        simulator.setProcessEnvironment(environment);
        simulator.start(testing_support::executablePath("tarvel-sim"),
                        QStringList{"--socket", socket(), "--speed", "20"} + extra);
        ASSERT_TRUE(simulator.waitForStarted(10000));
        ASSERT_TRUE(simulator.waitForReadyRead(10000)) << simulator.readAllStandardError().toStdString();
        ASSERT_EQ(simulator.readLine().trimmed(), socket().toUtf8());
    }

    QString socket() const { return dir.filePath("sim.sock"); }

    ProcessResult cli(const QStringList& arguments) {
        return testing_support::runExecutable("tarvel-cli", QStringList{"--simulate=" + socket()} + arguments,
                                              environment);
    }

    // The USB product id shown at a location, 0 when nothing is there.
    int productAt(int locationID) {
        core::SimulatorConnection connection(socket());
        const auto reply = connection.request("usb.list");
        if (!reply) return 0;
        for (const auto& device : (*reply)["devices"].toArray())
            if (device.toObject()["locationID"].toInt() == locationID)
                return device.toObject()["idProduct"].toInt();
        return 0;
    }

    QTemporaryDir dir;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    QProcess simulator;
};

TEST_F(CliHubSimulator, ListShowsTwoHubsWithTheMacsOnPortsOneToFive) {
    startSimulator();
    const ProcessResult result = cli({"hub", "list", "--json"});
    ASSERT_EQ(result.exitCode, 0) << result.standardError.toStdString();
    const QJsonArray hubs = QJsonDocument::fromJson(result.standardOutput.toUtf8())["hubs"].toArray();
    ASSERT_EQ(hubs.size(), 2);
    EXPECT_EQ(hubs[0]["serial"].toString(), "1C3B4A01");
    EXPECT_EQ(hubs[0]["firmwareVersion"].toString(), "2.10.4");
    for (const auto& hub : hubs) {
        const QJsonArray ports = hub.toObject()["ports"].toArray();
        ASSERT_EQ(ports.size(), 7);
        for (int p = 1; p <= 5; ++p) {
            EXPECT_TRUE(ports[p]["connected"].toBool()) << p;
            EXPECT_GT(ports[p]["voltage"].toString().toDouble(), 4.0) << p;
            EXPECT_GT(ports[p]["current"].toString().toDouble(), 0.0) << p;
        }
        EXPECT_FALSE(ports[6]["connected"].toBool());
    }
}

TEST_F(CliHubSimulator, DfuMakesTheMacComeBackInDfuMode) {
    startSimulator();
    ASSERT_EQ(productAt(kFirstHubPort3), 0x1905);
    const ProcessResult result = cli({"port", "dfu", "1C3B4A01:3"});
    ASSERT_EQ(result.exitCode, 0) << result.standardError.toStdString();
    EXPECT_EQ(result.standardOutput, "dfu 1C3B4A01:3: done\n");
    EXPECT_TRUE(result.standardError.contains("DFU port 3, Err: 0\n"));

    // The simulator runs on its own clock; wait for it, but not for ever.
    QDeadlineTimer deadline(10000);
    while (productAt(kFirstHubPort3) != 0x1227 && !deadline.hasExpired()) QThread::msleep(50);
    EXPECT_EQ(productAt(kFirstHubPort3), 0x1227);
}

TEST_F(CliHubSimulator, TransientResultsOnSetEnabledAreRetriedThreeTimes) {
    const QString station = dir.filePath("station.json");
    QFile file(station);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(R"({"hubs": [
        {"serial": "0x0A", "usbID": 1, "firmware": "2.10.4", "inputPowerSource": 7,
         "powerLimit": 100000, "powerLimitMax": 100000,
         "faults": [{"call": "port.setEnabled", "index": 3, "results": [3, 3, 0, 3, 3, 3]}],
         "macs": []}]})");
    file.close();
    startSimulator({"--station", station});

    ProcessResult result = cli({"port", "enable", "0A:3"});
    EXPECT_EQ(result.exitCode, 0) << result.standardError.toStdString();
    EXPECT_TRUE(result.standardError.contains("Enable port 3, Err: 0\n"));

    result = cli({"port", "enable", "0A:3", "--json"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.standardError.contains("Enable port 3, Err: 3\n"));
    EXPECT_EQ(QJsonDocument::fromJson(result.standardOutput.toUtf8())["ok"].toBool(true), false);
}

}  // namespace
