#include "support/SimulatedStation.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include <gtest/gtest.h>

namespace {

using testing_support::ProcessResult;

// What a technician sees when something is missing or mistyped. Unless a case starts it, the
// station only lends its private preferences and a socket nobody listens on.
class CliHub : public ::testing::Test {
  protected:
    ProcessResult cli(const QStringList& arguments) {
        return station.cliWithoutSimulator(arguments);
    }
    testing_support::SimulatedStation station;
};

TEST_F(CliHub, SimulatorThatIsNotRunningIsOneClearError) {
    for (const QStringList& command :
         {QStringList{"hub", "list", "--json"}, QStringList{"port", "dfu", "0A:3"}}) {
        const ProcessResult result = station.cli(command);
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_TRUE(result.standardOutput.isEmpty());
        EXPECT_EQ(result.standardError.count("tarvel-cli: "), 1)
            << result.standardError.toStdString();
        EXPECT_TRUE(result.standardError.contains("no station simulator is running at " +
                                                  station.socket()));
    }
    const ProcessResult usb = station.cli({"usb", "list"});
    EXPECT_EQ(usb.exitCode, 1);
    EXPECT_TRUE(usb.standardError.contains("cannot read the USB registry"));
    station.environment().insert("TARVEL_SIM", station.socket());
    EXPECT_EQ(cli({"hub", "reboot", "0A"}).exitCode, 1);
}

TEST_F(CliHub, WithoutAHubLibraryHubListingsSaySoAndPointTheWay) {
    for (const QStringList& command : {QStringList{"hubs"}, QStringList{"hub", "list", "--json"}}) {
        const ProcessResult result = cli(command);
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_TRUE(result.standardOutput.isEmpty());
        EXPECT_TRUE(result.standardError.contains("no hub library module"));
        EXPECT_TRUE(result.standardError.contains("--simulate"));
        EXPECT_TRUE(result.standardError.contains("/usr/share/tarvel/hub-module"))
            << result.standardError.toStdString();
    }
}

TEST_F(CliHub, MistypedCommandsAndHubsAreUsageErrors) {
    ProcessResult result = cli({"hubz"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_TRUE(result.standardError.startsWith(
        "tarvel-cli: unknown command: hubz\ncommands: defaults log hub port"))
        << result.standardError.toStdString();

    for (const QStringList& command :
         {QStringList{"port", "dfu", "HUB1:3"}, QStringList{"port", "reboot", "1234ABCD"},
          QStringList{"hub", "led", "0x0A"}, QStringList{"dfu", "G1:2"}}) {
        result = cli(command);
        EXPECT_EQ(result.exitCode, 2) << command.join(' ').toStdString();
        EXPECT_TRUE(result.standardError.contains("hexadecimal"))
            << result.standardError.toStdString();
    }
    EXPECT_EQ(cli({"port", "power-mode", "1234ABCD:1", "turbo"}).exitCode, 2);
}

TEST_F(CliHub, EmptyStationListsNoHubsAndKnowsNoneByName) {
    ASSERT_FALSE(station.start({"--station", station.writeStation(R"({"hubs": []})")}).isEmpty());
    ProcessResult result = station.cli({"hub", "list", "--json"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput, "{\"hubs\":[]}\n");
    result = station.cli({"hub", "list"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput, "No hubs found.\n");

    result = station.cli({"port", "dfu", "1234ABCD:3"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.standardError.contains("tarvel-cli: no hub 1234ABCD on this station"))
        << result.standardError.toStdString();
    result = station.cli({"port", "enable", "1234ABCD:7"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.standardError.contains("hub 1234ABCD has no port 7 (ports are 0 to 6)"));
    EXPECT_EQ(station.cli({"hub", "led", "0A"}).exitCode, 1);
}

// The verdict logs each failed port; the hub layer's own report of it must not double the line.
TEST_F(CliHub, AFailedPortIsLoggedOnce) {
    ASSERT_FALSE(station
                     .start({"--station", station.writeStation(R"({"hubs": [{"serial": "0x00C0FFEE",
        "faults": [{"call": "port.setEnabled", "index": 1, "results": [6], "repeat": true}],
        "macs": [{"port": 1, "ecid": "0x1", "serialNumber": "AAAA000001"}]}]})")})
                     .isEmpty());
    EXPECT_EQ(station.cli({"restart", "C0FFEE:1"}).exitCode, 1);
    QString log;
    for (const QFileInfo& file : QDir(station.logFolder()).entryInfoList(QDir::Files)) {
        QFile opened(file.filePath());
        if (opened.open(QIODevice::ReadOnly))
            log += QString::fromUtf8(opened.readAll());
    }
    const QStringList failures =
        log.split('\n').filter(QRegularExpression("C0FFEE:1.*fail|fail.*C0FFEE:1"));
    EXPECT_EQ(failures.size(), 2) << log.toStdString();  // the port, then the verdict
    EXPECT_EQ(log.count("port failed: C0FFEE:1"), 1) << log.toStdString();
}

}  // namespace
