#include "RecordedPorts.h"

#include "station/PortVerdict.h"

#include <QJsonArray>

#include <gtest/gtest.h>

namespace {

using station::PortVerdict;
using Step = PortProgress::Step;

class Verdicts : public ::testing::Test {
  protected:
    testing_support::RecordedPorts recorded{5};
    station::PortVerdict verdict{recorded.names()};
};

TEST_F(Verdicts, EveryPortDoneSucceedsOnlyWithoutAFalseCompletion) {
    for (int id = 1; id <= 5; ++id) verdict.record(recorded.done(id));
    EXPECT_FALSE(verdict.succeeded()) << "no completion yet";
    verdict.recordCompletion(true);
    EXPECT_TRUE(verdict.succeeded());
    EXPECT_EQ(verdict.summary(), "5 of 5 ports done");
    EXPECT_EQ(verdict.donePorts().size(), 5);

    station::PortVerdict checked = verdict;
    checked.recordUnverified("1C3B4A01:2", "Mac still booted after 30 s");
    EXPECT_FALSE(checked.succeeded()) << "a Mac not in the mode asked for fails the run";
    EXPECT_EQ(checked.summary(),
              "5 of 5 ports done; unverified: 1C3B4A01:2 (Mac still booted after 30 s)");
    EXPECT_EQ(checked.unverifiedDescriptions(),
              QStringList{"1C3B4A01:2: Mac still booted after 30 s"});

    verdict.recordCompletion(false);
    EXPECT_FALSE(verdict.succeeded());
    EXPECT_EQ(verdict.summary(), "5 of 5 ports done; the sequence reported a failure");
}

TEST_F(Verdicts, FailuresStickEmptyPortsAreNoFailureAndWorkOutranksASkip) {
    verdict.record(recorded.failed(1, Step::Reboot, -1));
    verdict.record(recorded.done(1));  // a later recovery cycle got through
    verdict.record(recorded.skipped(2));
    verdict.record(recorded.skipped(3));
    verdict.record(recorded.done(3));  // a restart reboots empty ports too
    verdict.record(recorded.done(4));
    verdict.record(recorded.skipped(5));
    verdict.recordCompletion(true);
    EXPECT_EQ(verdict.summary(),
              "2 of 5 ports done; failed: 1C3B4A01:1 (reboot, no answer from the hub); nothing "
              "connected: 1C3B4A01:2, 1C3B4A01:5");
    EXPECT_FALSE(verdict.succeeded());

    station::PortVerdict quiet(recorded.names().mid(1, 1));
    quiet.record(recorded.skipped(2));
    quiet.recordCompletion(true);
    EXPECT_TRUE(quiet.succeeded()) << "a port with nothing on it is not a failure";
    EXPECT_EQ(quiet.summary(), "0 of 1 port done; nothing connected: 1C3B4A01:2");
}

// The DFU sequence stopped by a hard error on the third port: the ports it had power-cycled for
// their message are partly done, not "not reached"; a hub that went away is named, not numbered.
TEST(VerdictWords, SayWhatWasDoneToEachPort) {
    testing_support::RecordedPorts recorded{5};
    station::PortVerdict verdict(recorded.names(), Step::DfuMessage);
    const auto powerCycle = [&](int id) {
        for (const Step step : {Step::Disable, Step::PowerMode, Step::Enable})
            verdict.record(recorded.step(id, step));
        verdict.record(recorded.step(id, Step::Settling, 3));
    };
    for (int id = 1; id <= 4; ++id) powerCycle(id);
    verdict.record(recorded.step(5, Step::Disable));
    verdict.record(recorded.failed(5, Step::Disable, 25));
    verdict.record(recorded.step(1, Step::DfuMessage));
    verdict.record(recorded.done(1));
    verdict.record(recorded.step(2, Step::DfuMessage));
    verdict.record(recorded.failed(2, Step::DfuMessage, 6));
    verdict.recordCompletion(false);
    verdict.recordWasDisabled("1C3B4A01:4");
    verdict.recordLeftDisabled("1C3B4A01:5");
    EXPECT_FALSE(verdict.succeeded());
    EXPECT_EQ(verdict.summary(),
              "1 of 5 ports done; failed: 1C3B4A01:2 (DFU message, result 6), 1C3B4A01:5 "
              "(disable, hub 1C3B4A01 went away); partly done: 1C3B4A01:3 (power-cycled, DFU "
              "message not sent), 1C3B4A01:4 (was disabled; power-cycled, DFU message not "
              "sent); left disabled: 1C3B4A01:5");
    EXPECT_EQ(verdict.failureDescriptions().size(), 5);

    verdict.recordLoss("lost the simulator");
    EXPECT_TRUE(verdict.summary().contains("1C3B4A01:5 (disable, lost the simulator)"));
    const QJsonObject json = verdict.json();
    EXPECT_EQ(json.value("partlyDone").toArray().size(), 2);
    EXPECT_EQ(json.value("wasDisabled").toArray().at(0).toString(), "1C3B4A01:4");
    EXPECT_EQ(json.value("leftDisabled").toArray().at(0).toString(), "1C3B4A01:5");
}

TEST(VerdictWords, PowerCyclingIsTheWholeOfAPowerModeRunAndCtrlCIsNoSuccess) {
    testing_support::RecordedPorts recorded{2};
    station::PortVerdict verdict(recorded.names());
    for (const Step step : {Step::Disable, Step::PowerMode, Step::Enable, Step::Settling})
        verdict.record(recorded.step(1, step));
    verdict.record(recorded.done(1));
    verdict.recordCompletion(true);
    verdict.recordInterrupted();
    EXPECT_FALSE(verdict.succeeded());
    EXPECT_EQ(verdict.summary(), "1 of 2 ports done; not reached: 1C3B4A01:2; stopped by Ctrl-C");
}

TEST(VerdictWords, UnverifiedPortsWithOneReasonMakeOneLine) {
    testing_support::RecordedPorts recorded{3};
    station::PortVerdict verdict(recorded.names(), Step::DfuMessage);
    for (int id = 1; id <= 3; ++id) verdict.record(recorded.done(id));
    verdict.recordCompletion(true);
    for (int id = 1; id <= 3; ++id)
        verdict.recordUnverified(recorded.names()[id - 1], "lost the simulator");
    EXPECT_EQ(verdict.unverifiedDescriptions(),
              QStringList{"1C3B4A01:1, 1C3B4A01:2, 1C3B4A01:3: lost the simulator"});
}

}  // namespace
