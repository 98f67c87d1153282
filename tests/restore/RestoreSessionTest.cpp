#include "support/CollaboratorBuilder.h"
#include "support/Scripts.h"

#include "configurator/ZMRConfigurator2Utility.h"
#include "core/AppState.h"
#include "core/SettingsKeys.h"
#include "core/Sounds.h"
#include "engines/CfgutilEngine.h"
#include "localport/AutoDFU.h"
#include "localport/LocalPortAutoRestore.h"
#include "restore/EventNotification.h"
#include "restore/RestoreQueue.h"
#include "restore/RestoreSession.h"
#include "restore/SoundPlayer.h"
#include "support/RecordingAlerts.h"
#include "support/TestSettings.h"
#include "support/VirtualClock.h"

#include <QFile>
#include <QSignalSpy>

#include <condition_variable>
#include <mutex>
#include <tuple>

#include <gtest/gtest.h>

namespace {

using restore::DeviceList;
using restore::DevicePtr;
using restore::RestoreQueue;
using restore::RestoreSession;
using testing_support::runLoopUntil;

const QString cancelled = "Restore Cancelled";
const QString restored = "Restored Successfully";

QString statusMessage(int status) {
    return QStringLiteral(
               "There was an error restoring the device with status %1. Please check "
               "log for error message. You can also try restoring with Apple "
               "Configurator to help identify issues.")
        .arg(status);
}

TEST(RestorePause, TextThatIsNotAnUnsigned32BitNumberMeansThreeSeconds) {
    for (const char* text : {"abc", "", "-1", "5000000000", "3", " 10", "10 ", "1e3", "0x10"})
        EXPECT_EQ(RestoreQueue::pauseBetweenStarts(text), 3u) << text;
    EXPECT_EQ(RestoreQueue::pauseBetweenStarts("0"), 0u);
    EXPECT_EQ(RestoreQueue::pauseBetweenStarts("10"), 10u);
    EXPECT_EQ(RestoreQueue::pauseBetweenStarts("4294967295"), 4294967295u);
    EXPECT_EQ(restore::realText(0.35f), "0.35");
    EXPECT_EQ(restore::realText(1.0f), "1.0");
    EXPECT_EQ(restore::realText(-1.0f), "-1.0");
}

class RecordingSounds final : public core::Sounds {
  public:
    void beep() override { played << "beep"; }
    void play(const QString& name) override { played << name; }
    QStringList played;
};

// A clock whose sleeps block until the test lets them pass, so a batch can be held between two
// starts. With `open`, sleeps are only recorded.
class GateClock final : public core::Clock {
  public:
    QDateTime now() const override { return QDateTime(QDate(2026, 11, 22), QTime(9, 0)); }
    void sleepSeconds(unsigned seconds) override {
        std::unique_lock lock(mutex_);
        sleeps_.push_back(seconds);
        wake_.wait(lock, [this] { return open || permits_ > 0; });
        if (!open)
            --permits_;
    }
    void sleepMicroseconds(std::uint64_t) override {}
    void release() {
        std::lock_guard lock(mutex_);
        ++permits_;
        wake_.notify_all();
    }
    std::vector<unsigned> sleeps() const {
        std::lock_guard lock(mutex_);
        return sleeps_;
    }
    std::atomic<bool> open{true};

  private:
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::vector<unsigned> sleeps_;
    int permits_ = 0;
};

class RestoreBatch : public ::testing::Test {
  protected:
    void SetUp() override {
        settings.settings().setValue(core::keys::shouldPlaySound, true);
        // Device 0x222 fails; every other device restores, or runs until stopped when the
        // "hold" file exists.
        makeSession(scripts.write("cfgutil",
                                  "echo '{\"Step\":\"Restoring\",\"Progress\":0.35}'\n"
                                  "[ \"$2\" = 546 ] && exit 3\n"
                                  "[ -e \"${0%/*}/hold\" ] && exec sleep 30\nexit 0"));
    }

    void makeSession(const QString& tool) {
        const testing_support::CollaboratorBuilder parts(settings.settings(), virtualClock,
                                                         &alerts);
        utility = std::make_unique<ZMRConfigurator2Utility>(parts.configurator(scripts, tool));
        engine = std::make_unique<engines::CfgutilEngine>(*utility);
        auto c = parts.restoreSession(*engine, *utility, appState, events, soundPlayer, autoDFU,
                                      scripts.dir.path());
        c.clock = &clock;
        session = std::make_unique<RestoreSession>(c);
    }

    static DevicePtr device(quint64 ecid, bool inDFU = true) {
        auto d = std::make_shared<AC2Device>();
        d->setEcid(ecid);
        d->setSerialNumber(QStringLiteral("SN%1").arg(ecid, 0, 16));
        d->setInDFU(inDFU);
        return d;
    }

    void useEventScript() {
        settings.settings().setValue(core::keys::shouldUseEventScript, true);
        settings.settings().setValue(core::keys::eventScriptPath, scripts.eventRecorder("events"));
    }
    QStringList events_() const { return scripts.sortedLines("events"); }

    QStringList historyLines() const {
        QStringList lines;
        for (const restore::History& record : session->history())
            lines << record.device + " " + record.serialNumber + " " + record.message;
        lines.sort();
        return lines;
    }

    bool runBatch(const DeviceList& devices) {
        QSignalSpy finished(session.get(), &RestoreSession::batchFinished);
        return session->restore(devices) && runLoopUntil([&] { return finished.count() == 1; });
    }

    testing_support::Scripts scripts;
    testing_support::TestSettings settings;
    testing_support::RecordingAlerts alerts;
    testing_support::VirtualClock virtualClock;
    GateClock clock;
    RecordingSounds sounds;
    restore::SoundPlayer soundPlayer{&sounds};
    core::AppState appState;
    restore::EventNotification events{virtualClock};
    AutoDFU autoDFU;
    std::unique_ptr<ZMRConfigurator2Utility> utility;
    std::unique_ptr<engines::CfgutilEngine> engine;
    std::unique_ptr<RestoreSession> session;
};

TEST_F(RestoreBatch, OneDeviceRestoresWithoutAPause) {
    settings.settings().setValue(core::keys::timeBetweenProcesses, "10");
    QSignalSpy prevent(session.get(), &RestoreSession::preventTerminationChanged);
    QSignalSpy progress(session.get(), &RestoreSession::deviceProgress);
    const DevicePtr mac = device(0x111);
    ASSERT_TRUE(runBatch({mac}));

    EXPECT_TRUE(clock.sleeps().empty());
    EXPECT_EQ(historyLines(), QStringList({"111 SN111 " + restored}));
    EXPECT_EQ(std::tuple(mac->restoreStatus(), mac->isRestoring(), session->restoredDevices(),
                         session->shouldShowRestoreComplete()),
              std::tuple("Successful", false, 1, true));
    EXPECT_EQ(sounds.played, QStringList{"finishSound"});
    ASSERT_EQ(progress.count(), 1);
    EXPECT_EQ(progress[0][1].toString(), "Restoring");
    EXPECT_EQ(prevent, (QList<QVariantList>{{true}, {false}})) << "held for the batch, then let go";
    EXPECT_EQ(autoDFU.autoTarvState(), AutoTarvState::restoring);
    EXPECT_EQ(appState.progressMessage(), "");
}

TEST_F(RestoreBatch, PausesBetweenStartsFromTheSettingAndFailuresDoNotStopTheBatch) {
    useEventScript();
    settings.settings().setValue(core::keys::timeBetweenProcesses, "10");
    QSignalSpy messages(&appState, &core::AppState::progressMessageChanged);
    const DeviceList macs{device(0x111), device(0x222), device(0x333)};
    ASSERT_TRUE(runBatch(macs));

    EXPECT_EQ(clock.sleeps(), std::vector<unsigned>({10, 10}));
    EXPECT_EQ(messages.first()[0].toString(), "Waiting to start next process");
    EXPECT_EQ(appState.progressMessage(), "");
    EXPECT_EQ(historyLines(), QStringList({"111 SN111 " + restored, "222 SN222 " + statusMessage(3),
                                           "333 SN333 " + restored}));
    EXPECT_EQ(macs[1]->restoreStatus(), statusMessage(3));
    EXPECT_EQ(std::tuple(session->showRestoreError(), session->errorMessage(),
                         session->shouldShowRestoreComplete(), session->restoredDevices()),
              std::tuple(true, statusMessage(3), false, 2));
    EXPECT_EQ(sounds.played, QStringList{"fail"});

    ASSERT_TRUE(runLoopUntil([&] { return events_().size() == 6; }));
    const QStringList seen = events_();
    EXPECT_EQ(seen[0], R"(restoreCompleted fail {"devices":"111,222,333","error":")" +
                           statusMessage(3) + "\"}");
    EXPECT_EQ(seen.mid(1, 2),
              QStringList(2, R"(restoreCompleted success {"devices":"111,222,333"})"));
    EXPECT_TRUE(seen[3].startsWith(R"(restoreStarted success {"deviceType":"","ecid":"0x111")"))
        << seen[3].toStdString();
}

TEST_F(RestoreBatch, CancelStopsTheRunningRestoresAndLeavesTheRestUnstarted) {
    useEventScript();
    QFile(scripts.path("hold")).open(QIODevice::WriteOnly);
    clock.open = false;
    const DeviceList macs{device(0x111), device(0x333), device(0x444)};
    QSignalSpy finished(session.get(), &RestoreSession::batchFinished);
    ASSERT_TRUE(session->restore(macs));

    // The first pause passes, the second holds the third device back.
    ASSERT_TRUE(runLoopUntil([&] { return clock.sleeps().size() == 1; }));
    clock.release();
    ASSERT_TRUE(runLoopUntil([&] {
        return clock.sleeps().size() == 2 && utility->task(0x111) && utility->task(0x333);
    }));
    ASSERT_TRUE(runLoopUntil([&] { return macs[0]->isRestoring() && macs[1]->isRestoring(); }));
    session->cancel(macs);
    EXPECT_EQ(macs[0]->restoreStatus(), "Cancelling restore...");
    EXPECT_TRUE(session->isCancelling());
    clock.release();
    ASSERT_TRUE(runLoopUntil([&] { return finished.count() == 1; }));

    EXPECT_EQ(historyLines(), QStringList({"111 SN111 " + cancelled, "333 SN333 " + cancelled,
                                           "444 SN444 " + cancelled}));
    for (const DevicePtr& mac : macs) EXPECT_EQ(mac->restoreStatus(), cancelled);
    EXPECT_FALSE(macs[2]->didCancel());
    EXPECT_TRUE(session->wasLastDeviceCancelled());
    EXPECT_FALSE(session->preventTermination());
    EXPECT_TRUE(finished[0][1].toBool());
    EXPECT_TRUE(sounds.played.isEmpty());
    ASSERT_TRUE(runLoopUntil([&] { return events_().size() == 6; }));
    EXPECT_EQ(events_().mid(0, 3),
              QStringList({R"(restoreCancelled success {"devices":"111,333,444"})",
                           R"(restoreCancelled success {"devices":"111,333,444"})",
                           R"(restoreCancelled success {"devices":"444"})"}));
}

TEST_F(RestoreBatch, RefusesWithAnAlertWhenAMacIsNotInDFUOrTheToolIsMissing) {
    ASSERT_FALSE(session->restore({device(0x111), device(0x333, false)}));
    EXPECT_EQ(alerts.shown().size(), 1u);
    EXPECT_TRUE(session->showNotInDFUError());

    makeSession(scripts.path("no-such-tool"));
    ASSERT_FALSE(session->restore({device(0x111)}));
    EXPECT_EQ(std::tuple(alerts.shown().size(), session->showACNotInstalledError(),
                         session->preventTermination(), session->history().size()),
              std::tuple(2u, true, false, 0));
}

TEST_F(RestoreBatch, AutomaticRestoreHandsTheMacToTheLocalPortCycleInsteadOfTheScript) {
    useEventScript();
    appState.setIsAutoRestoreOn(true);
    ASSERT_TRUE(runBatch({device(0x111)}));
    EXPECT_EQ(autoDFU.autoTarvState(), AutoTarvState::restored);
    ASSERT_TRUE(runLoopUntil([&] { return events_().size() == 1; }));
    EXPECT_TRUE(events_()[0].startsWith("restoreStarted"));
}

TEST_F(RestoreBatch, TheLocalPortHandOffRestoresTheMacOnThePortAndHandsAFailureBack) {
    appState.setIsAutoRestoreOn(true);
    using Port = localport::LocalPortAutoRestore::PortDevice;
    Port port = Port::running;
    const DeviceList listed{device(0x111), device(0x222)};
    localport::LocalPortAutoRestore handOff({&autoDFU, session.get(), &appState,
                                             [&](auto done) { done(listed); }, [&] { return port; },
                                             50});
    QSignalSpy started(&handOff, &localport::LocalPortAutoRestore::restoreStarted);
    QSignalSpy succeeded(&handOff, &localport::LocalPortAutoRestore::deviceRestored);
    QSignalSpy failed(&handOff, &localport::LocalPortAutoRestore::restoreFailed);

    // The cycle takes any arrival on the port for one in DFU mode; a running Mac goes back.
    autoDFU.setAutoTarvState(AutoTarvState::inDFU);
    ASSERT_TRUE(runLoopUntil([&] { return autoDFU.autoTarvState() == AutoTarvState::unknown; }));
    EXPECT_EQ(started.count(), 0);

    port = Port::inDFU;
    listed[0]->setLocationID(AutoDFU::dfuPortAddress);
    autoDFU.setAutoTarvState(AutoTarvState::inDFU);
    ASSERT_TRUE(runLoopUntil([&] { return succeeded.count() == 1; }));
    EXPECT_EQ(autoDFU.autoTarvState(), AutoTarvState::restored);

    // Only the Mac on the port, and a failure leaves the cycle waiting for it to be unplugged.
    listed[0]->setLocationID(0x01130000);
    listed[1]->setLocationID(AutoDFU::dfuPortAddress);
    autoDFU.setAutoTarvState(AutoTarvState::inDFU);
    ASSERT_TRUE(runLoopUntil([&] { return failed.count() == 1; }));
    EXPECT_EQ(started.count(), 2);
    EXPECT_EQ(started[1][0].value<DevicePtr>()->ecid(), 0x222u);
    EXPECT_EQ(failed[0][1].toString(), statusMessage(3));
    EXPECT_EQ(autoDFU.autoTarvState(), AutoTarvState::restored);
}

TEST_F(RestoreBatch, DisabledNotifierRunsNoScriptButTheBatchGoesOn) {
    useEventScript();
    events.setIsDisabled(true);
    ASSERT_TRUE(runBatch({device(0x111), device(0x333)}));
    EXPECT_EQ(session->restoredDevices(), 2);
    EXPECT_TRUE(events_().isEmpty());
}

TEST_F(RestoreBatch, RestoreTimerAndFreeSpaceTexts) {
    for (int i = 0; i < 65; ++i) session->restoreTimerFired();
    EXPECT_EQ(session->restoreTimeText(), "Restore Time: 01:05");
    EXPECT_TRUE(session->freeSpaceText().startsWith("Free Space: "));
    EXPECT_TRUE(session->freeSpaceText().endsWith(" GB"));
    EXPECT_GT(session->freeDiskSpace(), 0);
    EXPECT_TRUE(session->freeSpaceVolume().contains("home folder"));
}

}  // namespace
