#include "app/AppDelegate.h"
#include "app/StayInFront.h"

#include "core/SettingsKeys.h"
#include "localport/ZMRPrivHelperToolController.h"
#include "support/RecordingAlerts.h"
#include "support/Scripts.h"
#include "support/TestSettings.h"
#include "support/VirtualClock.h"

#include <QStringList>

#include <thread>

#include <gtest/gtest.h>

namespace {

using app::AppDelegate;

// A delegate over recording collaborators: what it logs, prints and asks of the application.
class AppDelegateTest : public ::testing::Test {
  protected:
    AppDelegate& delegate() {
        if (!delegate_)
            delegate_ = std::make_unique<AppDelegate>(app::AppDelegateEnvironment{
                .settings = &settings.settings(),
                .clock = &clock,
                .notifications = &center,
                .alerts = &alerts,
                .bundleVersion = bundleVersion,
                .log = [this](const QString& line) { logLines << line; },
                .standardOutput = [this](const QString& text) { printed += text; },
                .takeDisplaySleepAssertion = [this] { ++assertionsTaken; },
                .bringToFront = [this] { ++broughtToFront; },
                .disconnectAllHubs = [this] { ++hubDisconnections; },
                .startVersionCheck = [this] { ++versionChecks; }});
        return *delegate_;
    }

    // Launches, asks to stay in front, and loses the focus after the given time.
    int pullsBackAfter(qint64 milliseconds) {
        delegate().applicationDidFinishLaunching();
        center.post(AppDelegate::lastRequestedStayInFrontNotification);
        clock.advanceMilliseconds(milliseconds);
        delegate().appMovedToBackground();
        return broughtToFront;
    }

    testing_support::TestSettings settings;
    testing_support::VirtualClock clock;
    core::NotificationCenter center;
    testing_support::RecordingAlerts alerts;
    QString bundleVersion = QStringLiteral("42");
    QStringList logLines;
    QString printed;
    int assertionsTaken = 0, broughtToFront = 0, hubDisconnections = 0, versionChecks = 0;

  private:
    std::unique_ptr<AppDelegate> delegate_;
};

// The banner names the build, and how to turn verbose logging on, or off once it is on.
TEST_F(AppDelegateTest, BannerTellsHowToTurnVerboseLoggingOnOrOff) {
    delegate().applicationDidFinishLaunching();
    ASSERT_EQ(logLines.size(), 7);
    EXPECT_TRUE(logLines[0].contains(" applicationDidFinishLaunching(_:) "));
    EXPECT_EQ(logLines[2], "Tarvel Login Build Number: 42");
    EXPECT_EQ(logLines[5],
              "defaults write ~/Library/Preferences/com.kestrune.Tarvel showDebug -bool true");
    EXPECT_EQ(printed, "Tarvel Login Build Number: 42\n");

    logLines.clear();
    settings.settings().setValue(core::keys::showDebug, true);
    delegate().applicationDidFinishLaunching();
    ASSERT_EQ(logLines.size(), 6);
    EXPECT_EQ(logLines[4], "defaults delete ~/Library/Preferences/com.kestrune.Tarvel showDebug");
}

TEST_F(AppDelegateTest, LaunchKeepsTheDisplayAwakeAndChecksForUpdatesOnlyWhenAllowed) {
    bundleVersion.clear();
    delegate().applicationDidFinishLaunching();
    EXPECT_EQ(logLines.size(), 1) << "no build number, no banner";
    EXPECT_TRUE(printed.isEmpty());
    EXPECT_EQ(assertionsTaken, 1);
    EXPECT_EQ(versionChecks, 0);

    settings.settings().setValue(core::keys::checkForUpdates, true);
    delegate().applicationDidFinishLaunching();
    EXPECT_EQ(versionChecks, 1);
}

TEST(StayInFrontSeconds, StoredTextAsWholeSeconds) {
    const std::pair<QVariant, qint64> cases[] = {
        {QVariant(), 15}, {"", 15},  {" 10", 15}, {"10 ", 15},
        {"1.5", 15},      {"+", 15}, {"abc", 15}, {"99999999999999999999", 15},
        {"0", 0},         {"-5", 0}, {"+20", 20}, {"30", 30}};
    for (const auto& [stored, seconds] : cases)
        EXPECT_EQ(app::stay_in_front::seconds(stored), seconds) << stored.toString().toStdString();
}

TEST_F(AppDelegateTest, PullsBackOnlyWhileARequestedStayInFrontTimeLasts) {
    delegate().applicationDidFinishLaunching();
    delegate().appMovedToBackground();
    EXPECT_EQ(broughtToFront, 0) << "no request, no pull";
    center.post(AppDelegate::lastRequestedStayInFrontNotification);
    center.post(AppDelegate::cancelStayInFrontNotification);
    clock.advanceMilliseconds(1'000);
    delegate().appMovedToBackground();
    EXPECT_EQ(broughtToFront, 0) << "the request was withdrawn";

    EXPECT_EQ(pullsBackAfter(10'000), 1);
    clock.advanceMilliseconds(6'000);
    delegate().appMovedToBackground();
    EXPECT_EQ(broughtToFront, 1) << "16 s after the request the default 15 s are over";

    settings.settings().setValue(core::keys::stayInFrontAfterDFUSecs, QStringLiteral("0"));
    EXPECT_EQ(pullsBackAfter(0), 1) << "zero seconds never pull back";
}

TEST_F(AppDelegateTest, QuitIsRefusedWithAnAlertWhileABatchRuns) {
    QList<bool> changes;
    QObject::connect(&delegate(), &AppDelegate::preventTerminationChanged,
                     [&](bool prevent) { changes << prevent; });
    delegate().setPreventTermination(true);
    EXPECT_FALSE(delegate().applicationShouldTerminate());
    ASSERT_EQ(alerts.shown().size(), 1u);

    delegate().setPreventTermination(false);
    EXPECT_TRUE(delegate().applicationShouldTerminate());
    EXPECT_EQ(alerts.shown().size(), 1u);
    EXPECT_EQ(changes, (QList<bool>{true, false}));
}

TEST_F(AppDelegateTest, HubsAreLetGoAtTheEndAndWhenTheHubWindowCloses) {
    delegate().windowWillClose(QStringLiteral("options"));
    EXPECT_EQ(hubDisconnections, 0);
    delegate().windowWillClose(QStringLiteral("acroname"));
    EXPECT_EQ(hubDisconnections, 1);
    delegate().applicationWillTerminate();
    EXPECT_EQ(hubDisconnections, 2);
}

// Installing may be tried from a worker thread; the alert is shown on the main thread.
TEST_F(AppDelegateTest, AFailedHelperInstallationIsShownWithItsReason) {
    delegate().applicationDidFinishLaunching();
    delegate().applicationDidFinishLaunching();
    const localport::HelperError error{"pkexec", 126,
                                       "The administrator password prompt was dismissed."};
    std::thread installer([&] {
        center.post(
            ZMRPrivHelperToolController::helperNotification,
            {{ZMRPrivHelperToolController::underlyingErrorKey, QVariant::fromValue(error)}});
    });
    installer.join();
    ASSERT_TRUE(testing_support::runLoopUntil([&] { return !alerts.shown().empty(); }));
    QCoreApplication::processEvents();
    ASSERT_EQ(alerts.shown().size(), 1u) << "one alert, however often the application launched";
    EXPECT_EQ(alerts.shown()[0].title, AppDelegate::helperNotInstalledTitle);
    EXPECT_EQ(alerts.shown()[0].message,
              AppDelegate::helperNotInstalledText + error.localizedDescription);
}

}  // namespace
