#include "localport/FakeLocalPortHelper.h"

#include "support/CollaboratorBuilder.h"
#include "support/Scripts.h"

#include "core/NotificationCenter.h"
#include "core/SettingsKeys.h"
#include "localport/AutoDFU.h"
#include "support/TestSettings.h"
#include "support/VirtualClock.h"
#include "usb/USBManager.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

namespace {

using testing_support::runLoopUntil;

// A tick source the test steps by hand; it fires only while the cycle holds it.
class SteppedTimer final : public usb::RepeatingTimer {
  public:
    explicit SteppedTimer(std::function<void()> action) : action_(std::move(action)) {}
    bool isValid() const override { return valid_; }
    void invalidate() override { valid_ = false; }
    void fire() const {
        if (valid_)
            action_();
    }

  private:
    std::function<void()> action_;
    bool valid_ = true;
};

QVariantMap devices(std::initializer_list<std::int64_t> addresses) {
    QList<DeviceIOKitInfo> list;
    for (const std::int64_t address : addresses)
        list << DeviceIOKitInfo{0x05AC, {}, address, "Apple Mobile Device (DFU Mode)"};
    return {{USBManager::devicesKey, QVariant::fromValue(list)}};
}

constexpr std::int64_t dfuPort = 0x100000;
constexpr std::int64_t hubPort = 0x01130000;

class AutoDFUCycle : public ::testing::Test {
  protected:
    AutoDFUCycle() {
        auto c = testing_support::CollaboratorBuilder(settings.settings(), clock, nullptr, &center)
                     .autoDFU(helper);
        c.timers = [this](double seconds, std::function<void()> action) {
            periods.push_back(seconds);
            auto timer = std::make_unique<SteppedTimer>(std::move(action));
            current = timer.get();
            return timer;
        };
        c.print = [this](const QString& line) { printed << line; };
        cycle = std::make_unique<AutoDFU>(std::move(c));
    }

    // One tick, then whatever the reply queued on the main loop.
    void tick() {
        if (cycle->hasTimer())
            current->fire();
        QCoreApplication::processEvents();
    }
    void add(std::initializer_list<std::int64_t> addresses) {
        center.post(USBManager::deviceAddedNotification, devices(addresses));
    }
    void remove(std::int64_t address) {
        center.post(USBManager::deviceRemovedNotification, devices({address}));
    }
    void startAutomaticDFU() {
        cycle->setAutomaticDFU(true);
        ASSERT_TRUE(runLoopUntil([this] { return cycle->hasTimer(); }));
    }

    core::NotificationCenter center;
    testing_support::FakeLocalPortHelper helper;
    testing_support::TestSettings settings;
    testing_support::VirtualClock clock;
    std::vector<double> periods;
    SteppedTimer* current = nullptr;
    QStringList printed;
    std::unique_ptr<AutoDFU> cycle;
};

TEST_F(AutoDFUCycle, AMacGetsSevenTicksToShowUpInDFUModeBeforeTheRequestIsRepeated) {
    startAutomaticDFU();
    tick();
    EXPECT_EQ(helper.requests(), QStringList({"install?", "dfu"}));
    EXPECT_EQ(cycle->autoTarvState(), AutoTarvState::waitingForDFU);
    EXPECT_TRUE(cycle->isRunning());
    EXPECT_EQ(periods, std::vector<double>({1.0, 1.0})) << "the reply restarts the ticks";

    // Entering DFU mode drops the Mac off the bus; that must not reset the cycle.
    remove(dfuPort);
    for (int i = 0; i < 6; ++i) tick();
    EXPECT_EQ(cycle->waitingForDFUCounter(), 6);
    EXPECT_EQ(cycle->autoTarvState(), AutoTarvState::waitingForDFU);
    tick();
    EXPECT_EQ(cycle->autoTarvState(), AutoTarvState::unknown);
    EXPECT_EQ(cycle->waitingForDFUCounter(), 0);
    EXPECT_EQ(printed.count("waiting for DFU state"), 7);
    EXPECT_EQ(printed.last(),
              "didnt go into dfu after timeout. resetting back to trying to put "
              "in DFU mode");
    EXPECT_FALSE(printed.contains("device unplugged. setting to check"));
    tick();
    EXPECT_EQ(helper.count("dfu"), 2);
}

TEST_F(AutoDFUCycle, ARefusedRequestIsRepeatedEveryTickAndNoTickRunsWhileOneIsOut) {
    helper.script(3);
    helper.script(3);
    startAutomaticDFU();
    tick();
    tick();
    EXPECT_EQ(helper.count("dfu"), 2);
    EXPECT_EQ(cycle->autoTarvState(), AutoTarvState::unknown);
    EXPECT_TRUE(cycle->hasTimer());

    helper.holdReplies = true;
    tick();
    EXPECT_FALSE(cycle->isRunning());
    EXPECT_FALSE(cycle->hasTimer());
    add({dfuPort});
    EXPECT_EQ(cycle->autoTarvState(), AutoTarvState::unknown) << "not running: ignored";
    helper.release(0);
    ASSERT_TRUE(runLoopUntil([this] { return cycle->hasTimer(); }));
    EXPECT_EQ(cycle->autoTarvState(), AutoTarvState::waitingForDFU);
    EXPECT_EQ(helper.count("dfu"), 3);
}

// However long the request took, its end must tick the cycle on or switch it off with the reason:
// an unanswered request is asked again, a refused or dismissed one would prompt every second.
TEST_F(AutoDFUCycle, ARequestThatEndsWithoutAStatusNeverStallsTheCycle) {
    QSignalSpy refused(cycle.get(), &AutoDFU::automaticDFURefused);
    helper.script(HelperFailure{HelperFailure::Kind::unreachable, "NoReply"});
    startAutomaticDFU();
    tick();
    EXPECT_TRUE(cycle->hasTimer());
    tick();
    EXPECT_EQ(helper.count("dfu"), 2);
    EXPECT_EQ(refused.count(), 0);

    for (const auto kind : {HelperFailure::Kind::notAuthorized, HelperFailure::Kind::dismissed}) {
        startAutomaticDFU();
        helper.script(HelperFailure{kind, "refused"});
        const qsizetype before = helper.count("dfu");
        tick();
        EXPECT_FALSE(cycle->autoDFUMode());
        EXPECT_FALSE(cycle->hasTimer());
        ASSERT_EQ(refused.count(), 1);
        EXPECT_EQ(refused.takeFirst().at(0).value<HelperFailure>().kind, kind);
        tick();
        EXPECT_EQ(helper.count("dfu"), before + 1) << "asked once, not again";
    }
}

TEST_F(AutoDFUCycle, OnlyTheDFUPortMovesTheStateAndEachStateTreatsAnArrivalItsOwnWay) {
    startAutomaticDFU();
    add({hubPort});
    remove(hubPort);
    center.post(USBManager::deviceAddedNotification, {});
    EXPECT_EQ(cycle->autoTarvState(), AutoTarvState::unknown);

    add({hubPort, dfuPort});
    EXPECT_EQ(cycle->autoTarvState(), AutoTarvState::inDFU);
    tick();
    EXPECT_EQ(printed.last(), "inDFU state");
    for (const AutoTarvState state :
         {AutoTarvState::inDFU, AutoTarvState::restoring, AutoTarvState::restored}) {
        cycle->setAutoTarvState(state);
        add({dfuPort});
        EXPECT_EQ(cycle->autoTarvState(), state) << autoTarvStateName(state);
    }
    cycle->setAutoTarvState(AutoTarvState::stop);
    tick();
    EXPECT_EQ(printed.last(), "stop");
    EXPECT_EQ(helper.count("dfu"), 0);
}

TEST_F(AutoDFUCycle, UnpluggingARestoredMacStartsTheCycleAgainButNotWhileRestoring) {
    startAutomaticDFU();
    cycle->setAutoTarvState(AutoTarvState::restoring);
    remove(dfuPort);
    EXPECT_EQ(cycle->autoTarvState(), AutoTarvState::restoring);
    cycle->restoreFinished();
    EXPECT_EQ(cycle->autoTarvState(), AutoTarvState::restored);
    tick();
    EXPECT_EQ(helper.count("dfu"), 0) << "a restored Mac waits to be unplugged";
    remove(hubPort);
    EXPECT_EQ(cycle->autoTarvState(), AutoTarvState::restored);
    remove(dfuPort);
    EXPECT_EQ(cycle->autoTarvState(), AutoTarvState::unknown);
    EXPECT_EQ(printed.count("device unplugged. setting to check"), 2);
    tick();
    EXPECT_EQ(helper.count("dfu"), 1);
}

TEST_F(AutoDFUCycle, SwitchesStartFromUnknownAndTurningOneOffHaltsTheTicks) {
    QSignalSpy changes(cycle.get(), &AutoDFU::autoTarvStateChanged);
    cycle->setAutoTarvState(AutoTarvState::inDFU);
    cycle->setRestoreAutomatically(true);
    EXPECT_EQ(cycle->autoTarvState(), AutoTarvState::unknown);
    ASSERT_TRUE(runLoopUntil([this] { return cycle->hasTimer(); }));
    tick();
    EXPECT_EQ(helper.count("dfu"), 0) << "automatic DFU is off";
    cycle->setRestoreAutomatically(false);
    EXPECT_FALSE(cycle->isRunning());
    EXPECT_FALSE(cycle->hasTimer());

    startAutomaticDFU();
    cycle->setAutomaticDFU(false);
    EXPECT_FALSE(cycle->hasTimer());
    EXPECT_EQ(changes.count(), 2);
}

TEST_F(AutoDFUCycle, RecoveryRebootsFiveTimesWithoutWaitingForReplies) {
    helper.holdReplies = true;
    settings.settings().setValue(core::keys::recoverySleepBetweenReboots, 0);
    QStringList updates;
    int completions = 0;
    cycle->recoveryMode([&](const QString& message) { updates << message; },
                        [&] { ++completions; });
    EXPECT_EQ(helper.count("reboot"), 5);
    EXPECT_EQ(updates, QStringList({"Restarting 2 of 5", "Restarting 3 of 5", "Restarting 4 of 5",
                                    "Restarting 5 of 5", "Restarting 6 of 5"}));
    EXPECT_EQ(completions, 1);
    using Sleep = testing_support::VirtualClock::Sleep;
    EXPECT_EQ(clock.sleeps(), std::vector<Sleep>(5, Sleep{Sleep::Unit::Seconds, 0}));

    settings.settings().setValue(core::keys::recoverySleepBetweenReboots, 2);
    cycle->recoveryMode([](const QString&) {}, [] {});
    EXPECT_EQ(clock.sleeps().back(), (Sleep{Sleep::Unit::Seconds, 2}));
}

TEST_F(AutoDFUCycle, ARestoreFinishedWithRecoveryWantedRunsItOffTheMainThread) {
    cycle->setShouldBootToRecoveryAfterRestore(true);
    QSignalSpy finished(cycle.get(), &AutoDFU::recoveryAfterRestoreFinished);
    cycle->restoreFinished();
    EXPECT_EQ(cycle->autoTarvState(), AutoTarvState::restored);
    ASSERT_TRUE(runLoopUntil([&] { return finished.count() == 1; }));
    EXPECT_EQ(helper.count("reboot"), 5);
}

TEST_F(AutoDFUCycle, ARecoveryPauseThatIsNoWholeNumberOfSecondsStopsTheProgram) {
    settings.settings().setValue(core::keys::recoverySleepBetweenReboots, -1);
    EXPECT_DEATH(cycle->recoveryMode([](const QString&) {}, [] {}),
                 "recoverySleepBetweenReboots -1");
}

}  // namespace
