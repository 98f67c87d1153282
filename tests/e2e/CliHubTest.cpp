#include "support/SimulatedStation.h"

#include <gtest/gtest.h>

namespace {

using testing_support::ProcessResult;

// Without the vendor library and without a simulator the station has no hubs; these cases pin
// down what a technician sees when something is missing or mistyped. The station is never
// started: it only lends its private preferences and a socket nobody listens on.
class CliHub : public ::testing::Test {
protected:
    ProcessResult cli(const QStringList& arguments) {
        return station.cliWithoutSimulator(arguments);
    }
    testing_support::SimulatedStation station;
};

TEST_F(CliHub, SimulatorThatIsNotRunningIsOneClearError) {
    for (const QStringList& command : {QStringList{"hub", "list", "--json"},
                                       QStringList{"port", "dfu", "0A:3"}}) {
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

TEST_F(CliHub, UnknownHubsAndPortsAreErrors) {
    ProcessResult result = cli({"port", "dfu", "1234ABCD:3"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.standardError.contains("tarvel-cli: no hub 1234ABCD on this station"))
        << result.standardError.toStdString();

    result = cli({"port", "enable", "1234ABCD:7"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.standardError.contains("hub 1234ABCD has no port 7 (ports are 0 to 6)"));

    result = cli({"port", "reboot", "1234ABCD"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.standardError.contains("is not HUB:PORT"));

    EXPECT_EQ(cli({"port", "power-mode", "1234ABCD:1", "turbo"}).exitCode, 2);
    EXPECT_EQ(cli({"hub", "led", "0A"}).exitCode, 1);
}

TEST_F(CliHub, EmptyStationListsNoHubs) {
    ProcessResult result = cli({"hub", "list", "--json"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput, "{\"hubs\":[]}\n");
    result = cli({"hub", "list"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput, "No hubs found.\n");
}

}  // namespace
