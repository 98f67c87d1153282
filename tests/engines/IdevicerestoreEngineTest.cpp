#include "engines/IdevicerestoreEngine.h"

#include "configurator/ZMTaskWrapperWithBlocks.h"
#include "support/RecordingAlerts.h"
#include "support/Scripts.h"
#include "support/TestSettings.h"
#include "support/VirtualClock.h"

#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>

#include <gtest/gtest.h>

namespace idevicerestore_engine_test {

using engines::IdevicerestoreEngine;
using testing_support::runLoopUntil;

constexpr std::uint64_t ecid = 0x18C2A4B1E3F12E;

class IdevicerestoreEngineTest : public testing::Test {
  protected:
    void SetUp() override { device->setEcid(ecid); }

    std::unique_ptr<IdevicerestoreEngine> engine(const QString& toolPath, const QString& fallback) {
        IdevicerestoreEngine::Collaborators c;
        c.settings = &settings.settings();
        c.alerts = &alerts;
        c.clock = &clock;
        c.toolPath = toolPath;
        c.stateFolder = state.path();
        c.registry = [] { return std::nullopt; };
        c.fallbackFirmware = fallback;
        return std::make_unique<IdevicerestoreEngine>(std::move(c));
    }

    // A tool that runs `body`, {samples} naming the folder of the recorded runs.
    std::unique_ptr<IdevicerestoreEngine> scripted(QString body) {
        body.replace("{samples}", TARVEL_ENGINES_SAMPLES);
        return engine(scripts.write("idevicerestore", body), firmware);
    }

    void begin(IdevicerestoreEngine& tool) {
        tool.restore(
            device, [this](auto&, const QVariant& step, float) { steps << step.toString(); },
            [](auto&, const QString&) {},
            [this](auto&, bool failed, const QString& message) {
                ended = true;
                failure = failed ? std::optional<QString>(message) : std::nullopt;
            });
    }

    // Restores the device to its end; answers why it failed, or nothing.
    std::optional<QString> restoreWith(IdevicerestoreEngine& tool) {
        begin(tool);
        EXPECT_TRUE(runLoopUntil([this] { return ended; }));
        return failure;
    }

    testing_support::Scripts scripts;
    testing_support::TestSettings settings;
    testing_support::RecordingAlerts alerts;
    testing_support::VirtualClock clock;
    QTemporaryDir state;
    const QString firmware = scripts.write("UniversalMac_15.3.1_24D70_Restore.ipsw", "");
    std::shared_ptr<AC2Device> device = std::make_shared<AC2Device>();
    QStringList steps;
    bool ended = false;
    std::optional<QString> failure;
};

// The tool is told which Mac, to erase, never to ask and to print plain progress, with its log in
// the state folder and the firmware last; it runs in a folder of its own that goes with it, and
// whatever it drops there goes too.
TEST_F(IdevicerestoreEngineTest, RunsOneMacInAPrivateFolderThatIsGoneAfterwards) {
    auto tool = scripted(QStringLiteral("printf '%s\\n' \"$(pwd)\" \"$@\" > '%1'\n"
                                        "echo log > restore_18C2A4B1E3F12E_1.log\n"
                                        "cat '{samples}/plain-success.txt'")
                             .arg(scripts.path("command")));
    EXPECT_EQ(restoreWith(*tool), std::nullopt);

    QFile written(scripts.path("command"));
    ASSERT_TRUE(written.open(QIODevice::ReadOnly));
    const QStringList command =
        QString::fromUtf8(written.readAll()).split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(command.size(), 8);
    const QString workingFolder = command[0];
    EXPECT_TRUE(workingFolder.startsWith(state.path() + "/idevicerestore/work-"));
    EXPECT_TRUE(tool->logFile(ecid).startsWith(state.path() + "/idevicerestore/18C2A4B1E3F12E-"));
    EXPECT_EQ(command.mid(1), QStringList({"-i", "0x18C2A4B1E3F12E", "-e", "-y", "-P",
                                           "--logfile=" + tool->logFile(ecid), firmware}));
    EXPECT_TRUE(runLoopUntil([&] { return !QFileInfo::exists(workingFolder); }, 2000));
    EXPECT_FALSE(QDirIterator(state.path(), QDir::Files, QDirIterator::Subdirectories).hasNext());
    EXPECT_FALSE(QFileInfo::exists("restore_18C2A4B1E3F12E_1.log"));
    EXPECT_TRUE(steps.contains("Restoring image"));
    EXPECT_EQ(device->serialNumber(), "C02FK1ZNQ6L4");
}

// Only exit status 0 together with "DONE" is a restore that worked; any other end fails with the
// tool's last error line, or says how the tool ended when it printed none.
TEST_F(IdevicerestoreEngineTest, SucceedsOnlyWithStatusZeroAndDone) {
    const QString usbmuxd =
        "Device failed to enter restore mode. Make sure that usbmuxd is running.";
    const struct {
        QString body;
        std::optional<QString> failure;
        QStringList errorLines;
        int status;
    } outcomes[] = {
        {"cat '{samples}/plain-success.txt'", std::nullopt, {}, 0},
        {"grep -v '^DONE$' '{samples}/plain-success.txt'; exit 0",
         "idevicerestore ended without finishing the restore; its last line: Status: Restore "
         "Finished",
         {"Status: Restore Finished"},
         0},
        {"cat '{samples}/plain-success.txt'; exit 1",
         "idevicerestore ended with status 1; its last line: Status: Restore Finished",
         {"Status: Restore Finished"},
         1},
        {"cat '{samples}/verification-error.txt'; exit 1",
         "Unable to restore device",
         {"Status: Verification Error", "Unable to restore device"},
         1},
        {"cat '{samples}/old-style-restore-mode.txt'; "
         "cat '{samples}/old-style-restore-mode.stderr.txt' >&2; exit 1",
         usbmuxd,
         {usbmuxd},
         1},
    };
    for (const auto& outcome : outcomes) {
        SCOPED_TRACE(outcome.body.toStdString());
        ended = false;
        auto tool = scripted(outcome.body);
        EXPECT_EQ(restoreWith(*tool), outcome.failure);
        EXPECT_EQ(tool->errorLines(ecid), outcome.errorLines);
        EXPECT_EQ(tool->exitStatus(ecid), outcome.status);
    }
}

TEST_F(IdevicerestoreEngineTest, RefusesToStartWithoutFirmwareThatExists) {
    const QString missing = scripts.path("UniversalMac_gone.ipsw");
    EXPECT_TRUE(engine("idevicerestore", "")->refusesFirmware());
    EXPECT_TRUE(engine("idevicerestore", missing)->refusesFirmware());
    EXPECT_FALSE(engine("idevicerestore", firmware)->refusesFirmware());
    const auto shown = alerts.shown();
    ASSERT_EQ(shown.size(), 2u);
    EXPECT_EQ(shown[0].title, "No Firmware to Restore");
    EXPECT_EQ(shown[1].title, "IPSW Does Not Exist");
    EXPECT_EQ(shown[1].message, "The specified path for the IPSW does not exist at " + missing +
                                    ". Please check the path and try again.");
}

TEST_F(IdevicerestoreEngineTest, AToolThatCannotBeLaunchedFailsTheMacAtOnce) {
    const QString absent = scripts.path("no-such-idevicerestore");
    EXPECT_EQ(restoreWith(*engine(absent, firmware)),
              "idevicerestore could not be started at \"" + absent + "\"");
}

// The real tool only notes SIGTERM while it waits for the Mac: the cancel must still end once the
// runner's grace has passed (the time says the grace was needed), and the Mac's end is a cancel.
TEST_F(IdevicerestoreEngineTest, ACancelEndsAToolThatIgnoresTerminationAfterTheGrace) {
    auto tool = scripted(
        "trap '' TERM\necho 'Waiting for device to enter restore mode...'\n"
        "while :; do sleep 1; done");
    begin(*tool);
    ASSERT_TRUE(runLoopUntil([&] { return steps.contains("Waiting for restore mode"); }));
    QElapsedTimer cancelling;
    cancelling.start();
    tool->cancel(device);
    const int graceMs = ZMTaskWrapperWithBlocks::killGraceSeconds * 1000;
    ASSERT_TRUE(runLoopUntil([&] { return ended; }, 3 * graceMs)) << "the cancel hangs";
    EXPECT_GE(cancelling.elapsed(), graceMs - 100);
    EXPECT_LT(cancelling.elapsed(), 2 * graceMs);
    EXPECT_NE(failure, std::nullopt);
    EXPECT_TRUE(device->didCancel());
}

}  // namespace idevicerestore_engine_test
