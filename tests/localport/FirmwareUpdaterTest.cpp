#include "localport/FakeLocalPortHelper.h"

#include "support/CollaboratorBuilder.h"
#include "support/Scripts.h"

#include "core/AppState.h"
#include "core/NotificationCenter.h"
#include "core/SettingsKeys.h"
#include "localport/AutoDFU.h"
#include "localport/FirmwareUpdater.h"
#include "support/TestSettings.h"
#include "support/VirtualClock.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

namespace {

using testing_support::runLoopUntil;

class LocalPort : public ::testing::Test {
  protected:
    LocalPort() {
        center.addObserver({}, [this](const QString& name, const QVariantMap&) { posted << name; });
        const testing_support::CollaboratorBuilder parts(settings.settings(), clock, nullptr,
                                                         &center);
        cycle = std::make_unique<AutoDFU>(parts.autoDFU(helper));
        updater =
            std::make_unique<FirmwareUpdater>(parts.firmwareUpdater(helper, *cycle, appState));
    }
    ~LocalPort() override {
        cycle->setAutomaticDFU(false);
        cycle->setRestoreAutomatically(false);
    }

    core::NotificationCenter center;
    QStringList posted;
    testing_support::FakeLocalPortHelper helper;
    testing_support::TestSettings settings;
    testing_support::VirtualClock clock;
    core::AppState appState;
    std::unique_ptr<AutoDFU> cycle;
    std::unique_ptr<FirmwareUpdater> updater;
};

TEST_F(LocalPort, ADFURequestKeepsTheApplicationInFrontUnlessTheHelperRefusesIt) {
    QSignalSpy answered(updater.get(), &FirmwareUpdater::dfuAnswered);
    updater->gogoDFUMode();
    ASSERT_TRUE(runLoopUntil([&] { return answered.count() == 1; }));
    EXPECT_EQ(helper.requests(), QStringList({"install?", "dfu"}));
    EXPECT_EQ(posted, QStringList{FirmwareUpdater::lastRequestedStayInFrontNotification});
    EXPECT_FALSE(updater->showDFUError());
    EXPECT_TRUE(updater->dfuReplied());

    helper.script(3);
    updater->gogoDFUMode();
    ASSERT_TRUE(runLoopUntil([&] { return answered.count() == 2; }));
    EXPECT_EQ(answered[1][0].value<std::int64_t>(), 3);
    EXPECT_TRUE(updater->showDFUError());
    EXPECT_EQ(posted.mid(1), QStringList({FirmwareUpdater::lastRequestedStayInFrontNotification,
                                          FirmwareUpdater::cancelStayInFrontNotification}));
}

TEST_F(LocalPort, ARestartPostsNothingAndOnlyAFailureShowsItsError) {
    QSignalSpy answered(updater.get(), &FirmwareUpdater::rebootAnswered);
    helper.script(0);
    helper.script(25);
    updater->restart();
    updater->restart();
    ASSERT_TRUE(runLoopUntil([&] { return answered.count() == 2; }));
    EXPECT_TRUE(updater->showRebootError());
    EXPECT_EQ(answered[0][0].value<std::int64_t>(), 0);
    EXPECT_TRUE(posted.isEmpty());
}

// Each failure has its own alert text; a DFU request that failed holds nothing in front.
TEST_F(LocalPort, ARefusedOrDismissedRequestIsAnAnswerWithItsOwnAlert) {
    QSignalSpy dfuFailed(updater.get(), &FirmwareUpdater::dfuFailed);
    QSignalSpy rebootFailed(updater.get(), &FirmwareUpdater::rebootFailed);
    helper.script(HelperFailure{HelperFailure::Kind::notAuthorized, ""});
    updater->gogoDFUMode();
    ASSERT_TRUE(runLoopUntil([&] { return dfuFailed.count() == 1; }));
    EXPECT_TRUE(updater->showHelperError());
    EXPECT_FALSE(updater->showDFUError());
    EXPECT_EQ(updater->helperErrorText(), FirmwareUpdater::notAuthorizedText);
    EXPECT_EQ(posted, QStringList({FirmwareUpdater::lastRequestedStayInFrontNotification,
                                   FirmwareUpdater::cancelStayInFrontNotification}));

    updater->dismissHelperError();
    helper.script(HelperFailure{HelperFailure::Kind::dismissed, "Dismissed: prompt closed"});
    updater->restart();
    ASSERT_TRUE(runLoopUntil([&] { return rebootFailed.count() == 1; }));
    EXPECT_TRUE(updater->showHelperError());
    EXPECT_EQ(updater->helperErrorText(),
              FirmwareUpdater::dismissedText + " (Dismissed: prompt closed)");
}

TEST_F(LocalPort, TheAutomaticSwitchGoesOffWhenTheHelperRefusesTheCycle) {
    QSignalSpy switched(updater.get(), &FirmwareUpdater::isAutoDFUOnChanged);
    helper.script(HelperFailure{HelperFailure::Kind::notAuthorized, ""});
    updater->setIsAutoDFUOn(true);
    ASSERT_TRUE(runLoopUntil([&] { return switched.count() == 2; }));
    EXPECT_FALSE(updater->isAutoDFUOn());
    EXPECT_FALSE(cycle->autoDFUMode());
    EXPECT_EQ(updater->helperErrorText(), FirmwareUpdater::notAuthorizedText);
}

TEST_F(LocalPort, RecoveryRunsOffTheMainThreadAndTheApplicationIsBusyMeanwhile) {
    settings.settings().setValue(core::keys::recoverySleepBetweenReboots, 0);
    QSignalSpy messages(updater.get(), &FirmwareUpdater::updateMessageChanged);
    QSignalSpy finished(updater.get(), &FirmwareUpdater::recoveryFinished);
    updater->recovery();
    EXPECT_TRUE(updater->showModal());
    EXPECT_TRUE(updater->shouldDisableLocalButtons());
    EXPECT_TRUE(appState.isRunning());
    EXPECT_EQ(appState.progressMessage(), FirmwareUpdater::recoveryProgressText);
    ASSERT_TRUE(runLoopUntil([&] { return finished.count() == 1; }));
    ASSERT_EQ(messages.count(), 6) << "the cycle's five updates follow the first text";
    EXPECT_EQ(messages[0][0].toString(), FirmwareUpdater::recoveryProgressText);
    EXPECT_FALSE(updater->showModal());
    EXPECT_FALSE(updater->shouldDisableLocalButtons());
    EXPECT_FALSE(appState.isRunning());
    EXPECT_EQ(appState.progressMessage(), "");
}

TEST_F(LocalPort, TheSwitchesDriveTheCycleAndTheApplicationState) {
    updater->setIsAutoRestoreNotificationOn(true);
    EXPECT_TRUE(appState.isAutoRestoreOn());
    EXPECT_TRUE(cycle->autoRestoreMode());
    updater->appendRestoredDevice("1A0001");
    updater->setIsBootToRecoveryOn(true);
    EXPECT_TRUE(cycle->shouldBootToRecoveryAfterRestore());
    EXPECT_TRUE(appState.isBootToRecoveryOn());
    updater->setIsAutoDFUOn(true);
    EXPECT_TRUE(cycle->autoDFUMode());
    ASSERT_TRUE(runLoopUntil([&] { return cycle->hasTimer(); }));

    updater->setIsAutoRestoreNotificationOn(false);
    EXPECT_TRUE(updater->restoredDevices().isEmpty());
    EXPECT_FALSE(appState.isAutoRestoreOn());
    EXPECT_FALSE(cycle->hasTimer());
}

}  // namespace
