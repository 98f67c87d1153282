#include "support/ProcessRun.h"

#include "core/SimulatorConnection.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

using testing_support::ProcessResult;

// A real tarvel-sim, fast-forwarded, driven through tarvel-cli as a technician would.
class SimulatorStation : public ::testing::Test {
  protected:
    SimulatorStation() {
        QSettings seed(folder.filePath("config/kestrune.com/Tarvel.conf"), QSettings::IniFormat);
        seed.setValue("LogFolderPath", folder.filePath("logs"));
        environment.insert("XDG_CONFIG_HOME", folder.filePath("config"));
        environment.remove("TARVEL_SIM");
        socket = folder.filePath("sim.sock");
    }
    ~SimulatorStation() override {
        if (simulator.state() != QProcess::NotRunning) {
            simulator.kill();
            simulator.waitForFinished();
        }
    }

    // Starts tarvel-sim and answers the path it printed on its first line.
    QString startSimulator(const QStringList& extra = {}) {
        simulator.setProcessEnvironment(environment);
        simulator.start(testing_support::executablePath("tarvel-sim"),
                        QStringList{"--socket", socket, "--speed", "50"} + extra);
        if (!simulator.waitForStarted(5000))
            return {};
        const QDeadlineTimer deadline(5000);
        while (!simulator.canReadLine() && !deadline.hasExpired()) simulator.waitForReadyRead(100);
        return QString::fromUtf8(simulator.readLine()).trimmed();
    }

    ProcessResult cli(const QStringList& arguments) {
        return testing_support::runExecutable(
            "tarvel-cli", QStringList{"--simulate=" + socket} + arguments, environment);
    }

    QTemporaryDir folder;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    QString socket;
    QProcess simulator;
};

TEST_F(SimulatorStation, HubListThenDfuMakesThatMacComeBackInDfuMode) {
    ASSERT_EQ(startSimulator(), socket);

    const ProcessResult list = cli({"hub", "list", "--json"});
    ASSERT_EQ(list.exitCode, 0) << list.standardError.toStdString();
    const QJsonArray hubs =
        QJsonDocument::fromJson(list.standardOutput.toUtf8()).object().value("hubs").toArray();
    ASSERT_EQ(hubs.size(), 2);
    EXPECT_EQ(hubs[0].toObject().value("serial").toString(), "1C3B4A01");
    EXPECT_EQ(hubs[0].toObject().value("firmwareVersion").toString(), "2.10.4");
    for (const QJsonValue& hub : hubs) {
        const QJsonArray ports = hub.toObject().value("ports").toArray();
        ASSERT_EQ(ports.size(), 7);
        for (int port = 1; port <= 5; ++port) {
            const QJsonObject entry = ports[port].toObject();
            EXPECT_TRUE(entry.value("connected").toBool()) << port;
            EXPECT_EQ(entry.value("voltage").toString(), "5.0") << port;
            EXPECT_GT(entry.value("current").toString().toDouble(), 0.0) << port;
        }
        EXPECT_FALSE(ports[6].toObject().value("connected").toBool());
    }

    core::SimulatorConnection watcher(socket);
    std::vector<std::pair<QString, QJsonObject>> seen;
    QObject::connect(&watcher, &core::SimulatorConnection::event,
                     [&](const QString& name, const QJsonObject& payload) {
                         const QJsonObject device = payload.value("device").toObject();
                         if (device.value("locationID").toInteger() == 0x01130000)
                             seen.emplace_back(name, device);
                     });
    ASSERT_TRUE(watcher.subscribe({"usb"})) << watcher.lastError().toStdString();

    const ProcessResult dfu = cli({"-v", "port", "dfu", "1C3B4A01:3"});
    ASSERT_EQ(dfu.exitCode, 0) << dfu.standardError.toStdString();
    EXPECT_TRUE(dfu.standardError.contains("DFU port 3, Err: 0"))
        << dfu.standardError.toStdString();

    const QDeadlineTimer deadline(5000);
    while (seen.size() < 2 && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].first, "usb.removed");
    EXPECT_EQ(seen[0].second.value("idProduct").toInt(), 0x1905);
    EXPECT_EQ(seen[1].first, "usb.added");
    EXPECT_EQ(seen[1].second.value("idProduct").toInt(), 0x1227);
    EXPECT_TRUE(seen[1].second.value("kUSBSerialNumberString").toString().contains("iBoot"));

    const auto view = watcher.request("usb.list");
    ASSERT_TRUE(view);
    bool inDfu = false;
    for (const QJsonValue& device : view->value("devices").toArray())
        inDfu = inDfu || (device.toObject().value("locationID").toInteger() == 0x01130000 &&
                          device.toObject().value("kUSBProductString").toString() ==
                              "Apple Mobile Device (DFU Mode)");
    EXPECT_TRUE(inDfu);

    simulator.terminate();
    ASSERT_TRUE(simulator.waitForFinished(5000));
    EXPECT_EQ(simulator.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(simulator.exitCode(), 0);
    EXPECT_FALSE(QFile::exists(socket)) << "the socket is removed on the way out";
}

TEST_F(SimulatorStation, TransientResultThreeOnSetEnabledIsRetried) {
    QFile station(folder.filePath("flaky.json"));
    ASSERT_TRUE(station.open(QIODevice::WriteOnly));
    // The CLI names hubs by the serial in hexadecimal without leading zeros.
    station.write(R"({"hubs": [{"serial": "0x00C0FFEE", "faults": [
        {"call": "port.setEnabled", "index": 3, "results": [3, 3]},
        {"call": "port.setEnabled", "index": 4, "results": [3, 3, 3]}],
      "macs": [{"port": 3, "ecid": "0x3", "serialNumber": "FLAKY00003"}]}]})");
    station.close();
    ASSERT_EQ(startSimulator({"--station", station.fileName()}), socket);

    const ProcessResult twice = cli({"-v", "port", "disable", "C0FFEE:3"});
    EXPECT_EQ(twice.exitCode, 0) << twice.standardError.toStdString();
    EXPECT_TRUE(twice.standardError.contains("Disable port 3, Err: 0"));

    const ProcessResult thrice = cli({"-v", "port", "disable", "C0FFEE:4"});
    EXPECT_EQ(thrice.exitCode, 1);
    EXPECT_TRUE(thrice.standardError.contains("Disable port 4, Err: 3"))
        << thrice.standardError.toStdString();
}

TEST_F(SimulatorStation, InvalidStationFileIsRefusedWithItsErrors) {
    QFile station(folder.filePath("bad.json"));
    ASSERT_TRUE(station.open(QIODevice::WriteOnly));
    station.write(R"({"hubs": [{"serial": "C0FFEE"}]})");
    station.close();
    const ProcessResult result = testing_support::runExecutable(
        "tarvel-sim", {"--station", station.fileName(), "--socket", socket}, environment);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.standardError.startsWith("tarvel-sim: " + station.fileName() +
                                                ": hubs[0].serial: must be"))
        << result.standardError.toStdString();
    EXPECT_TRUE(result.standardOutput.isEmpty());
}

}  // namespace
