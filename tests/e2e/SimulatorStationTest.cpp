#include "support/SimulatedStation.h"

#include "core/SimulatorConnection.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>

#include <gtest/gtest.h>

#include <sys/resource.h>

namespace {

using testing_support::ProcessResult;

// A real tarvel-sim, fast-forwarded, driven through tarvel-cli as a technician would.
class SimulatorStation : public ::testing::Test {
  protected:
    testing_support::SimulatedStation station;
};

TEST_F(SimulatorStation, HubListThenDfuMakesThatMacComeBackInDfuMode) {
    ASSERT_EQ(station.start(), station.socket());

    const ProcessResult list = station.cli({"hub", "list", "--json"});
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

    core::SimulatorConnection watcher(station.socket());
    std::vector<std::pair<QString, QJsonObject>> seen;
    QObject::connect(&watcher, &core::SimulatorConnection::eventReceived,
                     [&](const QString& name, const QJsonObject& payload) {
                         const QJsonObject device = payload.value("device").toObject();
                         if (device.value("locationID").toInteger() == 0x01130000)
                             seen.emplace_back(name, device);
                     });
    ASSERT_TRUE(watcher.subscribe({"usb"})) << watcher.lastError().toStdString();
    // A subscription with an unknown topic is refused whole; other topics hear no USB events.
    core::SimulatorConnection other(station.socket());
    int otherEvents = 0;
    QObject::connect(&other, &core::SimulatorConnection::eventReceived, [&] { ++otherEvents; });
    EXPECT_FALSE(other.subscribe({"usb", "bogus"}));
    ASSERT_TRUE(other.subscribe({"restore"}));

    // A DFU message travels only over a power-delivery contract.
    ASSERT_EQ(station.cli({"port", "power-mode", "1C3B4A01:3", "pd"}).exitCode, 0);
    ASSERT_TRUE(station.waitForContract("1C3B4A01", 3));
    const ProcessResult dfu = station.cli({"-v", "port", "dfu", "1C3B4A01:3"});
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

    EXPECT_EQ(seen[1].second.value("kUSBProductString").toString(),
              "Apple Mobile Device (DFU Mode)");
    EXPECT_EQ(otherEvents, 0);

    station.simulator().terminate();
    ASSERT_TRUE(station.simulator().waitForFinished(5000));
    EXPECT_EQ(station.simulator().exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(station.simulator().exitCode(), 0);
    EXPECT_FALSE(QFile::exists(station.socket())) << "the socket is removed on the way out";
}

TEST_F(SimulatorStation, InvalidStationFileIsRefusedWithItsErrors) {
    const QString bad = station.writeStation(R"({"hubs": [{"serial": "C0FFEE"}]})");
    const ProcessResult result = testing_support::runExecutable(
        "tarvel-sim", {"--station", bad, "--socket", station.socket()}, station.environment());
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.standardError.startsWith("tarvel-sim: " + bad + ": hubs[0].serial: must be"))
        << result.standardError.toStdString();
    EXPECT_TRUE(result.standardOutput.isEmpty());
}

#ifdef __SANITIZE_ADDRESS__
constexpr long peakMemoryLimitKiB = 600 * 1024;  // the sanitizer's shadow memory and quarantine
#else
constexpr long peakMemoryLimitKiB = 150 * 1024;
#endif

// The largest file the simulator reads, made of nothing but bad entries: it is refused with twenty
// lines and a count, and the simulator's peak memory stays a small multiple of the file.
TEST_F(SimulatorStation, AHostileStationFileIsRefusedBrieflyAndInBoundedMemory) {
    QByteArray json = R"({"hubs": [)";
    for (int i = 0; i < 5000; ++i) json += R"({"serial": "x"},)";
    json.chop(1);
    json += "]";
    qsizetype unknown = 0;
    const QByteArray filler(24, 'x');
    while (json.size() < 16 * 1024 * 1024 - 64)
        json += ", \"k" + QByteArray::number(unknown++) + "\": \"" + filler + '"';
    json += "}";
    const QString bad = station.writeStation(json);

    const ProcessResult result = testing_support::runExecutable(
        "tarvel-sim", {"--station", bad, "--socket", station.socket()}, station.environment());
    rusage children{};
    ::getrusage(RUSAGE_CHILDREN, &children);
    EXPECT_EQ(result.exitCode, 1);
    const QStringList lines = result.standardError.split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 21) << result.standardError.left(2000).toStdString();
    // The unknown fields, one "too many hubs" and the serials of the 15 hubs that are read.
    EXPECT_EQ(lines.back(), QStringLiteral("tarvel-sim: and %1 more errors").arg(unknown + 16 - 20));
    // The largest child this test process has waited for, so at least the simulator's peak.
    EXPECT_LT(children.ru_maxrss, peakMemoryLimitKiB) << "kilobytes";
}

}  // namespace
