#include "support/ProcessRun.h"

#include <QDir>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

using testing_support::ProcessResult;

// Without the vendor library and without a simulator the station has no hubs; these cases pin
// down what a technician sees when something is missing or mistyped.
class CliHub : public ::testing::Test {
protected:
    CliHub() {
        QSettings seed(config.filePath("kestrune.com/Tarvel.conf"), QSettings::IniFormat);
        seed.setValue("LogFolderPath", config.filePath("logs"));
        environment.insert("XDG_CONFIG_HOME", config.path());
        environment.remove("TARVEL_SIM");
    }

    ProcessResult cli(const QStringList& arguments) {
        return testing_support::runExecutable("tarvel-cli", arguments, environment);
    }

    static int lineCount(const QString& text, const QString& marker) {
        int count = 0;
        for (const QString& line : text.split('\n'))
            if (line.startsWith(marker)) ++count;
        return count;
    }

    QTemporaryDir config;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
};

TEST_F(CliHub, SimulatorThatIsNotRunningIsOneClearError) {
    const QString socket = config.filePath("nobody-listens.sock");
    for (const QStringList& command :
         {QStringList{"--simulate=" + socket, "hub", "list", "--json"},
          QStringList{"--simulate=" + socket, "port", "dfu", "0A:3"}}) {
        const ProcessResult result = cli(command);
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_TRUE(result.standardOutput.isEmpty());
        EXPECT_EQ(lineCount(result.standardError, "tarvel-cli: "), 1) << result.standardError.toStdString();
        EXPECT_TRUE(result.standardError.contains("no station simulator is running at " + socket));
    }
    environment.insert("TARVEL_SIM", socket);
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
