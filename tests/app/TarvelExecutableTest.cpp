#include "LocalHttpServer.h"

#include "support/ProcessRun.h"
#include "support/SimulatedStation.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTest>

#include <gtest/gtest.h>

namespace {

using testing_support::executablePath;
using testing_support::runExecutable;
using testing_support::SimulatedStation;

TEST(TarvelExecutable, CommandLineMistakesAndASilentSimulatorStopItEarly) {
    const QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    const auto version = runExecutable("tarvel", {"--version"}, environment);
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_TRUE(version.standardOutput.startsWith("tarvel "))
        << version.standardOutput.toStdString();

    EXPECT_EQ(runExecutable("tarvel", {"--simulat"}, environment).exitCode, 2);

    const auto silent =
        runExecutable("tarvel", {"--simulate=" + QDir::tempPath() + "/no-such.sock"}, environment);
    EXPECT_EQ(silent.exitCode, 1);
    EXPECT_TRUE(silent.standardError.contains("no station simulator is running at"));
}

// The real application on a simulated station, drawn off screen: it launches in order, shows its
// window and asks the version service when allowed to.
TEST(TarvelExecutable, LaunchesOnTheSimulatedStation) {
    SimulatedStation station;
    ASSERT_FALSE(station.start().isEmpty());
    testing_support::LocalHttpServer versionService;
    versionService.respond(200, R"({"com.kestrune.Tarvel": {"version": "0.0.1"}})");
    station.setPreference("checkForUpdates", true);
    station.setPreference("versionCheckURL", versionService.url());

    QProcess tarvel;
    QProcessEnvironment environment = station.environment();
    environment.insert("QT_QPA_PLATFORM", "offscreen");
    tarvel.setProcessEnvironment(environment);
    tarvel.start(executablePath("tarvel"), {"--simulate=" + station.socket()});
    QByteArray output, errors;
    const bool shown = QTest::qWaitFor(
        [&] {
            output += tarvel.readAllStandardOutput();
            errors += tarvel.readAllStandardError();
            return errors.contains("Main window shown at") && !versionService.requests().isEmpty();
        },
        15000);
    tarvel.terminate();
    tarvel.waitForFinished(5000);

    ASSERT_TRUE(shown) << errors.toStdString();
    EXPECT_EQ(output, "Tarvel Login Build Number: 1\n");
    EXPECT_EQ(versionService.requests().front().value("zmr-app-identifier"), "com.kestrune.Tarvel");

    QFile log(station.logFolder() + "/generic.log");
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    const QByteArray logged = log.readAll();
    EXPECT_LT(logged.indexOf("Tarvel Login Build Number: 1"),
              logged.indexOf("Main window shown at"));
    EXPECT_TRUE(logged.contains("Set debugLogging to true to show verbose logging with"));
}

}  // namespace
