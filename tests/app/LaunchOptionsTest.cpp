#include "app/LaunchOptions.h"

#include "core/SimulatorAddress.h"

#include <gtest/gtest.h>

namespace {

using app::LaunchOptions;

TEST(LaunchOptions, SimulatorSelection) {
    qunsetenv("TARVEL_SIM");
    EXPECT_FALSE(LaunchOptions::parse({}).simulatorSocket.has_value());
    EXPECT_EQ(LaunchOptions::parse({"--simulate"}).simulatorSocket,
              core::defaultSimulatorSocketPath());
    EXPECT_EQ(LaunchOptions::parse({"--simulate=/tmp/s.sock"}).simulatorSocket, "/tmp/s.sock");
    EXPECT_FALSE(LaunchOptions::parse({"--simulate="}).error.isEmpty());

    qputenv("TARVEL_SIM", "/run/station.sock");
    EXPECT_EQ(LaunchOptions::parse({}).simulatorSocket, "/run/station.sock");
    qunsetenv("TARVEL_SIM");
    EXPECT_EQ(LaunchOptions::parse({"--version", "--simulat"}).error, "unknown argument --simulat");
}

}  // namespace
