#include "support/SimulatedStation.h"

#include "core/SimulatorConnection.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <utility>

namespace {

using testing_support::ProcessResult;

// tarvel-sim as a process: its events reach only the topics asked for, and it leaves nothing
// behind when it stops.
TEST(Simulator, PublishesUsbChangesToTheirSubscribersAndStopsCleanly) {
    testing_support::SimulatedStation station;
    ASSERT_EQ(station.start(), station.socket());
    core::SimulatorConnection watcher(station.socket());
    QStringList seen;
    QObject::connect(&watcher, &core::SimulatorConnection::eventReceived,
                     [&](const QString& name, const QJsonObject& payload) {
                         if (payload["device"]["locationID"].toInteger() == 0x01130000)
                             seen << name;
                     });
    ASSERT_TRUE(watcher.subscribe({"usb"})) << watcher.lastError().toStdString();
    // A subscription with an unknown topic is refused whole; other topics hear no USB events.
    core::SimulatorConnection other(station.socket());
    int otherEvents = 0;
    QObject::connect(&other, &core::SimulatorConnection::eventReceived, [&] { ++otherEvents; });
    EXPECT_FALSE(other.subscribe({"usb", "bogus"}));
    ASSERT_TRUE(other.subscribe({"restore"}));

    ASSERT_EQ(station.cli({"port", "disable", "1C3B4A01:3"}).exitCode, 0);
    const QDeadlineTimer deadline(5000);
    while (seen.isEmpty() && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    EXPECT_EQ(seen, QStringList{"usb.removed"});
    EXPECT_EQ(otherEvents, 0);

    station.simulator().terminate();
    ASSERT_TRUE(station.simulator().waitForFinished(5000));
    EXPECT_EQ(std::pair(station.simulator().exitStatus(), station.simulator().exitCode()),
              std::pair(QProcess::NormalExit, 0));
    EXPECT_FALSE(QFile::exists(station.socket())) << "the socket is removed on the way out";
}

#ifdef __SANITIZE_ADDRESS__
constexpr long peakMemoryLimitKiB = 600 * 1024;  // the sanitizer's shadow memory and quarantine
#else
constexpr long peakMemoryLimitKiB = 150 * 1024;
#endif

// The largest file the simulator reads, made of nothing but bad entries: it is refused with twenty
// lines that name the file and a count, and the simulator's peak memory stays a small multiple of
// the file.
TEST(Simulator, AHostileStationFileIsRefusedBrieflyAndInBoundedMemory) {
    testing_support::SimulatedStation station;
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
    EXPECT_TRUE(result.standardOutput.isEmpty());
    const QStringList lines = result.standardError.split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 21) << result.standardError.left(2000).toStdString();
    EXPECT_TRUE(lines[0].startsWith("tarvel-sim: " + bad + ": ")) << lines[0].toStdString();
    // The unknown fields, one "too many hubs" and the serials of the 15 hubs that are read.
    EXPECT_EQ(lines.back(),
              QStringLiteral("tarvel-sim: and %1 more errors").arg(unknown + 16 - 20));
    // The largest child this test process has waited for, so at least the simulator's peak.
    EXPECT_LT(children.ru_maxrss, peakMemoryLimitKiB) << "kilobytes";
}

}  // namespace
