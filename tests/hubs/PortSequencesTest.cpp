#include "StationFixture.h"

#include "hubs/BrainStemWrapper.h"

namespace {

using testing_support::StationFixture;

QStringList cycle(int port, bool withMode, int pause) {
    QStringList steps{QStringLiteral("port[%1].setEnabled").arg(port)};
    if (withMode)
        steps << QStringLiteral("port[%1].setPowerMode").arg(port);
    steps << "sleep 1" << QStringLiteral("port[%1].setEnabled").arg(port)
          << QStringLiteral("sleep %1").arg(pause);
    return steps;
}

class PortSequences : public StationFixture {};

TEST_F(PortSequences, PowerModePassCyclesConnectedPortsAndTruncatesPauses) {
    backend->hub(0x1000).ports[2].orientation = 0;  // nothing on port 2
    settings.settings().setValue(core::keys::acronameDelayAfterSettingPowerMode, 2.7);
    const AcronamePorts ports = refreshedPorts();
    manager->setPowerMode(1, {ports[0], ports[1], ports[2]}, completion());

    QStringList expected = cycle(1, true, 2) + cycle(3, true, 2);
    expected << "sleep 2"
             << "done true";
    EXPECT_EQ(timeline.events(), expected);
    EXPECT_EQ(backend->hub(0x1000).ports[1].powerMode, 1);
}

TEST_F(PortSequences, ModesBeyondTwoOnlyCycleAndNothingConnectedMeansNoExtraPause) {
    AcronamePorts ports = refreshedPorts();
    manager->setPowerMode(3, {ports[0]}, completion());
    EXPECT_EQ(timeline.events(), cycle(1, false, 3) + QStringList({"sleep 3", "done true"}));

    timeline.clear();
    ports[1]->setIsConnected(false);
    manager->setPowerMode(0, {ports[1]}, completion());
    EXPECT_EQ(timeline.events(), QStringList({"done true"}));
}

TEST_F(PortSequences, PortsAlreadyInPowerDeliveryAreSkippedOnlyWhenTheSettingSaysSo) {
    backend->hub(0x1000).ports[1].powerMode = 4;
    const AcronamePorts ports = refreshedPorts();
    manager->setPowerMode(0, {ports[0]}, completion());
    EXPECT_EQ(timeline.events(), QStringList({"done true"}));

    timeline.clear();
    settings.settings().setValue(core::keys::acronameSkipDFUSDPMode, false);
    manager->setPowerMode(0, {ports[0]}, completion());
    EXPECT_EQ(timeline.events(), cycle(1, true, 3) + QStringList({"sleep 3", "done true"}));
}

TEST_F(PortSequences, APortThatCannotBeDisabledEndsThePassAndLeavesTheRestAlone) {
    const AcronamePorts ports = refreshedPorts();
    backend->script("port[2].setEnabled", {stem::aErrIO});
    manager->dfuModeForAcronamePorts({ports[0], ports[1], ports[2]}, update(), completion());
    QStringList expected{"update Putting devices into DFU mode (setting power role)"};
    expected << cycle(1, true, 3) << "port[2].setEnabled"
             << "done false";
    EXPECT_EQ(timeline.events(), expected);
    EXPECT_FALSE(logLines.contains("enumerating hubs"));  // no refresh after a failed pass
}

TEST_F(PortSequences, APortThatCannotBeEnabledIsLoggedAndStillPaused) {
    const AcronamePorts ports = refreshedPorts();
    backend->script("port[1].setEnabled", {stem::aErrNone, stem::aErrIO});
    manager->setPowerMode(2, {ports[0], ports[1]}, completion());
    EXPECT_EQ(timeline.events(), cycle(1, true, 3) + QStringList({"done false"}));
    EXPECT_TRUE(logLines.contains("error enabling port: 1"));
}

TEST_F(PortSequences, DfuWithoutSkippingReturnsPortsToChargingMode) {
    settings.settings().setValue(core::keys::acronameSkipDFUSDPMode, false);
    const AcronamePorts ports = refreshedPorts();
    manager->dfuModeForAcronamePorts({ports[0]}, update(), completion());
    const QStringList events = timeline.events();
    const auto finishing = events.indexOf("update Finishing Up...");
    ASSERT_GE(finishing, 0);
    EXPECT_EQ(events.mid(finishing + 1), cycle(1, true, 3) + QStringList({"sleep 3", "done true"}));
    EXPECT_EQ(backend->hub(0x1000).ports[1].powerMode, 2);
}

TEST_F(PortSequences, AFailedDfuCommandCancelsBeepsRefreshesAndCompletesTwice) {
    const AcronamePorts ports = refreshedPorts();
    backend->script("pd[2].setUEIBytes", {stem::aErrIO});
    manager->dfuModeForAcronamePorts({ports[0], ports[1], ports[2]}, update(), completion());
    const QStringList events = timeline.events();
    const auto failed = events.lastIndexOf("pd[2].setUEIBytes");
    ASSERT_GE(failed, 0);
    EXPECT_EQ(events.mid(failed + 1, 5),
              QStringList({"sleep 1", "note CancelStayInFrontNotification", "beep", "sleep 8",
                           "update Refreshing Devices..."}));
    EXPECT_EQ(events.mid(events.size() - 3),
              QStringList({"done false", "update Finishing Up...", "done true"}));
    EXPECT_FALSE(events.contains("pd[3].setUEIBytes"));
    EXPECT_TRUE(logLines.contains("enumerating hubs"));
}

TEST_F(PortSequences, DfuOverPortsWithNothingConnectedSendsNothing) {
    for (int p = 1; p <= 5; ++p) backend->hub(0x1000).ports[p].orientation = 0;
    const AcronamePorts ports = refreshedPorts();
    manager->dfuModeForAcronamePorts(ports, update(), completion());
    EXPECT_EQ(timeline.events(),
              QStringList({"update Putting devices into DFU mode (setting power role)",
                           "update Putting devices into DFU mode (sending DFU command)", "sleep 8",
                           "update Finishing Up...", "done true"}));
}

TEST_F(PortSequences, EmptyListsEndAtOnce) {
    manager->dfuModeForAcronamePorts({}, update(), completion());
    manager->recoveryForAcronamePorts({}, update(), completion());
    manager->restartForAcronamePorts({}, update(), completion());
    EXPECT_EQ(timeline.events(),
              QStringList({"done false", "done false", "update Preparing to restart devices...",
                           "done false"}));
}

TEST_F(PortSequences, RestartRebootsEveryPortAndReportsAFailureAtOnceAndAgain) {
    backend->hub(0x1000).ports[1].powerMode = 4;  // skipped by the pass
    backend->hub(0x1000).ports[2].powerMode = 4;
    backend->hub(0x1000).ports[3].powerMode = 4;
    const AcronamePorts ports = refreshedPorts();
    backend->script("pd[2].setUEIBytes", {stem::aErrIO});
    manager->restartForAcronamePorts({ports[0], ports[1], ports[2]}, update(), completion());
    const QStringList events = timeline.events();
    EXPECT_EQ(events.mid(0, 6),
              QStringList({"update Preparing to restart devices...", "update Restarting devices",
                           "pd[1].setUEIBytes", "pd[2].setUEIBytes", "beep", "done false"}));
    EXPECT_EQ(events.mid(6, 2), QStringList({"update Finishing Up...", "sleep 5"}));
    EXPECT_EQ(events.mid(events.size() - 2), QStringList({"done false", "done true"}));
    EXPECT_FALSE(events.contains("pd[3].setUEIBytes"));
    const auto& sent = backend->hub(0x1000).ports[1].lastUEIBytes;
    EXPECT_TRUE(std::equal(sent.begin(), sent.end(), BrainStemWrapper::kRebootMessage.begin(),
                           BrainStemWrapper::kRebootMessage.end()))
        << "a restart sends the reboot message, not the DFU one";
}

// Restart and recovery both give up at once when a port cannot be power-cycled.
TEST_F(PortSequences, AFailedPassStopsRestartAndRecoveryBeforeAnyMessageAndRefreshes) {
    for (const bool restart : {true, false}) {
        SCOPED_TRACE(restart ? "restart" : "recovery");
        const AcronamePorts ports = refreshedPorts();
        backend->script("port[1].setEnabled", {stem::aErrTimeout});
        if (restart)
            manager->restartForAcronamePorts({ports[0], ports[1]}, update(), completion(),
                                             observer());
        else
            manager->recoveryForAcronamePorts({ports[0], ports[1]}, update(), completion(),
                                              observer());
        EXPECT_EQ(observed().filter(QRegularExpression("done|failed")),
                  QStringList({"> 1/2 1000:1 failed at disable, result 18"}))
            << "a pass before the messages reports no success of its own";
        const QStringList events = timeline.events().filter(QRegularExpression("^[^>]"));
        const auto failed = events.indexOf("port[1].setEnabled");
        ASSERT_GE(failed, 0);
        EXPECT_EQ(events.value(failed + 1), "done false");
        EXPECT_TRUE(events.filter("setUEIBytes").isEmpty()) << "no message after a failed pass";
        EXPECT_TRUE(logLines.contains("enumerating hubs")) << "the station is refreshed";
    }
}

TEST_F(PortSequences, RecoveryCountsAreLimitedToOneToTen) {
    for (auto [setting, cycles] : {std::pair{0, 6}, {11, 6}, {-1, 6}, {10, 10}, {1, 1}}) {
        settings.settings().setValue(core::keys::acronameRecoveryRebootTimes, setting);
        for (int p = 1; p <= 5; ++p) backend->hub(0x1000).ports[p].powerMode = 4;
        const AcronamePorts ports = refreshedPorts();
        manager->recoveryForAcronamePorts({ports[0]}, update(), completion());
        const QStringList events = timeline.events();
        EXPECT_EQ(events.count("pd[1].setUEIBytes"), cycles) << setting;
        EXPECT_TRUE(events.contains(QStringLiteral("update Restarting %1 of %1 times").arg(cycles)))
            << setting;
        EXPECT_EQ(events.last(), "done true");
        recordHubCalls = false;
    }
}

TEST_F(PortSequences, RecoveryPausesWithMicrosecondPrecision) {
    settings.settings().setValue(core::keys::acronameRecoveryRebootDelay, 0.25);
    settings.settings().setValue(core::keys::acronameRecoveryRebootTimes, 2);
    backend->hub(0x1000).ports[1].powerMode = 4;
    const AcronamePorts ports = refreshedPorts();
    manager->recoveryForAcronamePorts({ports[0], ports[5 - 1]}, update(), completion());
    EXPECT_EQ(
        timeline.events().mid(0, 2),
        QStringList({"update Preparing to put devices in recovery...", "port[5].setEnabled"}));
    const QStringList events = timeline.events();
    const auto first = events.indexOf("update Restarting 1 of 2 times");
    ASSERT_GE(first, 3);
    // After the port's own pause and the pass's closing one, a third before the first reboot.
    EXPECT_EQ(events.mid(first - 4, 4),
              QStringList({"port[5].setEnabled", "sleep 3", "sleep 3", "sleep 3"}));
    EXPECT_EQ(events.mid(first),
              QStringList({"update Restarting 1 of 2 times", "pd[1].setUEIBytes",
                           "pd[5].setUEIBytes", "usleep 250000", "update Restarting 2 of 2 times",
                           "pd[1].setUEIBytes", "pd[5].setUEIBytes", "usleep 250000",
                           "update Finishing Up...", "sleep 5", "done true"}));
}

using PortObserverEvents = StationFixture;

TEST_F(PortObserverEvents, DfuTellsEachStepBeforeItsHubCallAndEachPassPauseWithItsLength) {
    backend->hub(0x1000).ports[2].orientation = 0;  // nothing on port 2
    const AcronamePorts ports = refreshedPorts();
    manager->dfuModeForAcronamePorts({ports[0], ports[1]}, update(), completion(), observer());

    QStringList expected{"update Putting devices into DFU mode (setting power role)",
                         "> 1/2 1000:1 disable",
                         "port[1].setEnabled",
                         "> 1/2 1000:1 power mode",
                         "port[1].setPowerMode",
                         "sleep 1",
                         "> 1/2 1000:1 enable",
                         "port[1].setEnabled",
                         "> 1/2 1000:1 settling 3s",
                         "sleep 3",
                         "> 2/2 1000:2 skipped",
                         "> pass pause 3s",
                         "sleep 3",
                         "update Putting devices into DFU mode (sending DFU command)",
                         "update Putting ports into DFU Mode...",
                         "note LastRequestedStayInFrontNotification",
                         "> 1/2 1000:1 DFU message",
                         "pd[1].setUEIBytes",
                         "> 1/2 1000:1 done",
                         "> 1/2 1000:1 settling 1s",
                         "sleep 1",
                         "> pass pause 8s",
                         "sleep 8",
                         "update Finishing Up...",
                         "done true"};
    EXPECT_EQ(timeline.events(), expected);
}

TEST_F(PortObserverEvents, RestartAndRecoveryReportRebootsPerPort) {
    settings.settings().setValue(core::keys::acronameRecoveryRebootTimes, 2);
    for (int p = 1; p <= 5; ++p) backend->hub(0x1000).ports[p].powerMode = 4;  // no pass
    const AcronamePorts ports = refreshedPorts();
    backend->script("pd[2].setUEIBytes", {stem::aErrIO});
    manager->recoveryForAcronamePorts({ports[0], ports[1]}, update(), completion(), observer());
    EXPECT_EQ(observed(),
              QStringList({"> pass pause 3s", "> 1/2 1000:1 reboot", "> 2/2 1000:2 reboot",
                           "> 2/2 1000:2 failed at reboot, result 6", "> 1/2 1000:1 reboot",
                           "> 1/2 1000:1 done", "> 2/2 1000:2 reboot", "> 2/2 1000:2 done",
                           "> pass pause 5s"}))
        << "a recovery goes on past a failed reboot; the port's failure stays on record";

    timeline.clear();
    backend->script("pd[1].setUEIBytes", {stem::aErrIO});
    manager->restartForAcronamePorts({ports[0], ports[1]}, update(), completion(), observer());
    EXPECT_EQ(observed(),
              QStringList({"> 1/2 1000:1 reboot", "> 1/2 1000:1 failed at reboot, result 6",
                           "> pass pause 5s"}));
}

TEST_F(PortObserverEvents, APowerModePassAloneReportsEveryPortItCycled) {
    backend->hub(0x1000).ports[3].orientation = 0;
    const AcronamePorts ports = refreshedPorts();
    backend->script("port[4].setEnabled", {stem::aErrNone, stem::aErrIO});
    manager->setPowerMode(2, {ports[0], ports[2], ports[3], ports[4]}, completion(), observer());
    EXPECT_EQ(observed().filter(QRegularExpression("done|failed|skipped")),
              QStringList({"> 1/4 1000:1 done", "> 2/4 1000:3 skipped",
                           "> 3/4 1000:4 failed at enable, result 6"}));
    EXPECT_EQ(timeline.events().last(), "done false");
}

}  // namespace
