#include "support/SimulatedStation.h"

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <tuple>

namespace {

using testing_support::ProcessResult;

// tarvel-cli where no station is needed: each test has its own preferences store and log folder
// from a station that is never started.
class Cli : public ::testing::Test {
  protected:
    ProcessResult cli(const QStringList& arguments) {
        return station.cliWithoutSimulator(arguments);
    }
    testing_support::SimulatedStation station;
};

TEST_F(Cli, DefaultsWriteReadAndDeleteRoundTrip) {
    EXPECT_EQ(cli({"defaults", "write", "timeBetweenProcesses", "abc"}).exitCode, 0);
    const ProcessResult read = cli({"defaults", "read", "timeBetweenProcesses"});
    // Log lines are echoed only when asked for.
    EXPECT_EQ(std::tuple(read.exitCode, read.standardOutput, read.standardError),
              std::tuple(0, "abc\n", ""));
    EXPECT_EQ(cli({"-v", "defaults", "read", "timeBetweenProcesses"}).standardError,
              "tarvel-cli -v defaults read timeBetweenProcesses\n");

    EXPECT_EQ(cli({"defaults", "write", "acronameRecoveryRebootTimes", "-int", "-1"}).exitCode, 0);
    EXPECT_EQ(cli({"defaults", "read", "acronameRecoveryRebootTimes"}).standardOutput, "-1\n");
    EXPECT_EQ(cli({"defaults", "write", "showDebug", "-bool", "YES"}).exitCode, 0);
    EXPECT_EQ(cli({"defaults", "read", "showDebug"}).standardOutput, "1\n");

    EXPECT_EQ(cli({"defaults", "delete", "timeBetweenProcesses"}).exitCode, 0);
    EXPECT_EQ(cli({"defaults", "read", "timeBetweenProcesses"}).standardOutput, "3\n");
    EXPECT_EQ(cli({"defaults", "delete", "timeBetweenProcesses"}).exitCode, 1);

    const ProcessResult all = cli({"defaults", "read"});
    EXPECT_EQ(all.exitCode, 0);
    EXPECT_TRUE(QRegularExpression(R"(showDebug\s+1\s+set)").match(all.standardOutput).hasMatch())
        << all.standardOutput.toStdString();
    EXPECT_TRUE(QRegularExpression(R"(timeBetweenProcesses\s+3\s+default)")
                    .match(all.standardOutput)
                    .hasMatch());
    const ProcessResult missing = cli({"defaults", "read", "noSuchKey"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_TRUE(missing.standardError.contains("(com.kestrune.Tarvel, noSuchKey) does not exist"));
}

TEST_F(Cli, AValueAKnownKeyCannotUseIsStoredWithAWarning) {
    const QStringList unusable[] = {{"verifyTimeoutSeconds", "-float", "1e30"},
                                    {"acronameDelayAfterSettingPowerMode", "abc"},
                                    {"acronameRecoveryRebootTimes", "-int", "11"},
                                    {"timeBetweenProcesses", " 10"},
                                    {"showDebug", "-int", "5"},
                                    {"removeACCache", "-float", "1"},
                                    {"eventScriptPath", "-int", "3"}};
    for (const QStringList& write : unusable) {
        const ProcessResult result = cli(QStringList{"defaults", "write"} + write);
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_TRUE(result.standardError.startsWith("tarvel-cli: warning: " + write[0] + " takes "))
            << result.standardError.toStdString();
        const QString stored = write.back() == "1e30" ? QStringLiteral("1e+30") : write.back();
        EXPECT_EQ(cli({"defaults", "read", write[0]}).standardOutput, stored + '\n')
            << "stored anyway";
    }
    const QStringList usable[] = {
        {"verifyTimeoutSeconds", "-float", "45"}, {"acronameRecoveryRebootDelay", "0.25"},
        {"timeBetweenProcesses", "10"},           {"stayInFrontAfterDFUSecs", "-5"},
        {"showDebug", "-bool", "true"},           {"acronameParallelHubs", "YES"},
        {"somebodyElsesKey", "-float", "1e30"}};
    for (const QStringList& write : usable) {
        const ProcessResult result = cli(QStringList{"defaults", "write"} + write);
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_EQ(result.standardError, "") << write.join(' ').toStdString();
    }
}

// A mistyped command line is a usage error that names what was wrong, asks nothing of a
// station, and changes nothing.
TEST_F(Cli, MistakesAreUsageErrorsThatNameWhatWasWrong) {
    const std::pair<QStringList, QString> mistakes[] = {
        {{"frobnicate"}, "tarvel-cli: unknown command: frobnicate\n"},
        {{"frobnicate", "--help"}, "tarvel-cli: unknown command: frobnicate\n"},
        {{"--help", "frobnicate"}, "tarvel-cli: unknown command: frobnicate\n"},
        {{"-v", "frobnicate", "-h"}, "tarvel-cli: unknown command: frobnicate\n"},
        {{"hubz"}, "tarvel-cli: unknown command: hubz\ncommands: defaults log hub port"},
        {{}, ""},
        {{"defaults", "write", "showDebug", "-bool", "maybe"}, "showDebug"},
        {{"defaults", "write", "acronameRecoveryRebootTimes", "-int", "six"},
         "acronameRecoveryRebootTimes"},
        {{"defaults", "write", "showDebug"}, ""},
        {{"port", "dfu", "HUB1:3"}, "hexadecimal"},
        {{"port", "reboot", "1234ABCD"}, "hexadecimal"},
        {{"hub", "led", "0x0A"}, "hexadecimal"},
        {{"dfu", "G1:2"}, "hexadecimal"},
        {{"port", "power-mode", "1234ABCD:1", "turbo"}, "turbo"},
        {{"power-mode", "turbo", "--all"}, "turbo"},
        {{"restart"}, ""},
        {{"restore-device", "not-an-ecid"}, "not-an-ecid"},
    };
    for (const auto& [arguments, said] : mistakes) {
        const ProcessResult result = cli(arguments);
        EXPECT_EQ(result.exitCode, 2) << arguments.join(' ').toStdString();
        EXPECT_TRUE(result.standardError.contains(said)) << result.standardError.toStdString();
        EXPECT_EQ(result.standardOutput, "");
    }
    EXPECT_EQ(cli({"defaults", "read", "showDebug"}).standardOutput, "0\n") << "nothing written";
    EXPECT_EQ(cli({"--help"}).exitCode, 0);
    const ProcessResult commandHelp = cli({"defaults", "--help"});
    EXPECT_EQ(commandHelp.exitCode, 0);
    EXPECT_TRUE(commandHelp.standardOutput.contains("defaults")) << "a real command keeps its help";
}

TEST_F(Cli, WithoutAHubLibraryHubListingsSaySoAndPointTheWay) {
    for (const QStringList& command : {QStringList{"hubs"}, QStringList{"hub", "list", "--json"}}) {
        const ProcessResult result = cli(command);
        EXPECT_EQ(std::tuple(result.exitCode, result.standardOutput), std::tuple(1, ""));
        for (const char* hint :
             {"no hub library module", "--simulate", "/usr/share/tarvel/hub-module"})
            EXPECT_TRUE(result.standardError.contains(hint)) << result.standardError.toStdString();
    }
    // The environment chooses the simulator as --simulate does.
    station.environment().insert("TARVEL_SIM", station.socket());
    EXPECT_TRUE(
        cli({"hub", "reboot", "0A"})
            .standardError.contains("no station simulator is running at " + station.socket()));
}

TEST_F(Cli, EveryRunLeavesAnAuditLineWhereTheLogFolderPreferencePoints) {
    QTemporaryDir elsewhere;
    EXPECT_EQ(cli({"defaults", "write", "LogFolderPath", elsewhere.path()}).exitCode, 0);
    EXPECT_EQ(cli({"log", "path"}).standardOutput, elsewhere.filePath("generic.log") + "\n");

    QFile old(station.logFolder() + "/generic.log");
    ASSERT_TRUE(old.open(QIODevice::ReadOnly));
    EXPECT_TRUE(old.readAll().contains(": tarvel-cli defaults write LogFolderPath "));

    QFile log(elsewhere.filePath("generic.log"));
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    const QString line = QString::fromUtf8(log.readAll()).trimmed();
    EXPECT_TRUE(QRegularExpression(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d\d:\d\d )"
                                   R"(tarvel-cli\(\d+\): tarvel-cli log path$)")
                    .match(line)
                    .hasMatch())
        << line.toStdString();

    const ProcessResult shown = cli({"log", "show"});
    EXPECT_EQ(shown.exitCode, 0);
    EXPECT_EQ(shown.standardOutput.count("tarvel-cli log"), 2);
}

}  // namespace
