#include "RecordedPorts.h"

#include "cli/PortVerdict.h"

#include <QJsonArray>

#include <gtest/gtest.h>

namespace {

using cli::PortVerdict;
using Step = PortProgress::Step;

class Verdicts : public ::testing::Test {
  protected:
    testing_support::RecordedPorts recorded{5};
    PortVerdict verdict{recorded.names()};
};

// The DFU sequence with a hard error on the third port: it completes false, then true.
TEST_F(Verdicts, AFailedPortFailsTheRunThoughTheLastCompletionIsTrue) {
    verdict.record(recorded.done(1));
    verdict.record(recorded.done(2));
    verdict.record(recorded.failed(3, Step::DfuMessage, 6));
    verdict.recordCompletion(false);
    verdict.recordCompletion(true);
    EXPECT_FALSE(verdict.succeeded());
    EXPECT_EQ(verdict.summary(),
              "2 of 5 ports done; failed: 1C3B4A01:3 (DFU message, result 6); not reached: "
              "1C3B4A01:4, 1C3B4A01:5");
    const QJsonObject json = verdict.json();
    EXPECT_EQ(json.value("notReached").toArray().size(), 2);
    EXPECT_EQ(json.value("failed").toArray().at(0).toObject().value("result").toInt(), 6);
}

TEST_F(Verdicts, EveryPortDoneSucceedsOnlyWithoutAFalseCompletion) {
    for (int id = 1; id <= 5; ++id) verdict.record(recorded.done(id));
    EXPECT_FALSE(verdict.succeeded()) << "no completion yet";
    verdict.recordCompletion(true);
    EXPECT_TRUE(verdict.succeeded());
    EXPECT_EQ(verdict.summary(), "5 of 5 ports done");
    EXPECT_EQ(verdict.donePorts().size(), 5);

    PortVerdict checked = verdict;
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

    PortVerdict quiet(recorded.names().mid(1, 1));
    quiet.record(recorded.skipped(2));
    quiet.recordCompletion(true);
    EXPECT_TRUE(quiet.succeeded()) << "a port with nothing on it is not a failure";
    EXPECT_EQ(quiet.summary(), "0 of 1 port done; nothing connected: 1C3B4A01:2");
}

}  // namespace
