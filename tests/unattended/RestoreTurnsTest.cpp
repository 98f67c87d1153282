#include "BenchFixture.h"

#include <QSignalSpy>

#include <tuple>

namespace bench_testing {
namespace {
// Restores start one at a time, the pause between processes apart, never more at once than
// allowed, the longest waiting first; a failure on one port leaves the other's restore alone.
TEST_F(Bench, RestoreStartsAreSpacedAndCapped) {
    start(true, 1);
    plug(dfuMac(2, 0xB2));
    now_ = 1;
    plug(dfuMac(1, 0xA1));
    ASSERT_EQ(restorer_.asked, QStringList{"1C3B4A01:2"});
    EXPECT_EQ(restorer_.locations.front(), portLocation(2));
    emit restorer_.started("1C3B4A01:2", {"Mac14,2", 0xB2, "B2"});
    EXPECT_EQ(port(2).phase, PortPhase::restoring);
    ticks(5);
    EXPECT_EQ(restorer_.asked.size(), 1) << "one restore at most";
    emit restorer_.finished("1C3B4A01:2", false, false, "libusbrestore error:21");
    EXPECT_EQ(std::tuple(port(2).phase, port(2).reason),
              std::tuple(PortPhase::failed, "libusbrestore error:21"));
    ASSERT_EQ(restorer_.asked.size(), 2);
    EXPECT_EQ(restorer_.asked.last(), "1C3B4A01:1");

    // Apple Configurator does not list it yet: asked again a little later, not at once.
    emit restorer_.notListed("1C3B4A01:1");
    EXPECT_EQ(restorer_.asked.size(), 2);
    ticks(2);
    ASSERT_EQ(restorer_.asked.size(), 3);
    emit restorer_.started("1C3B4A01:1", {"Macmini9,1", 0xA1, "A1"});
    emit restorer_.finished("1C3B4A01:1", true, false, "Successful");
    EXPECT_EQ(port(1).phase, PortPhase::done);
    EXPECT_EQ(std::tuple(bench_->summary().restored, bench_->summary().failed), std::tuple(1, 1));
}

TEST_F(Bench, TheGateHoldsTheNextStartForThePause) {
    start(true, 4);
    plug(dfuMac(1, 0xA1));
    emit restorer_.started("1C3B4A01:1", {"Mac14,2", 0xA1, "A1"});
    plug(dfuMac(2, 0xB2));
    EXPECT_EQ(restorer_.asked.size(), 1) << "three seconds between starts";
    ticks(2);
    EXPECT_EQ(restorer_.asked.size(), 1);
    ticks(1);
    EXPECT_EQ(restorer_.asked.size(), 2);
}

// A stop that comes while a Mac is being looked up lets the lookup end: the restore it starts
// is cancelled at once, and the bench has stopped only once that restore has ended. A Mac still
// waiting for its turn never gets it.
TEST_F(Bench, AStopDuringALookupCancelsTheRestoreItStarts) {
    start(true);
    plug(dfuMac(1, 0xA1));
    plug(dfuMac(2, 0xB2));
    ASSERT_EQ(restorer_.asked, QStringList{"1C3B4A01:1"});
    QSignalSpy stopped(bench_.get(), &UnattendedBench::stopped);
    bench_->stop();
    EXPECT_EQ(std::tuple(port(2).phase, port(2).reason), std::tuple(PortPhase::failed, "stopped"));
    EXPECT_EQ(port(1).phase, PortPhase::queued) << "its Mac is being looked up";
    emit restorer_.started("1C3B4A01:1", {"Mac14,2", 0xA1, "A1"});
    EXPECT_EQ(restorer_.cancels, 2) << "at the stop, and once the restore began";
    EXPECT_EQ(stopped.size(), 0) << "the cancelled restore has not ended yet";
    emit restorer_.finished("1C3B4A01:1", false, true, "Restore Cancelled");
    EXPECT_EQ(stopped.size(), 1);
    EXPECT_EQ(restorer_.asked.size(), 1);
    EXPECT_EQ(bench_->summary().cancelled, 2);
}

// A Mac pulled out while it waits for its turn fails after a few ticks without it, and gives up
// its turn; one that is back in time keeps it.
TEST_F(Bench, AMacPulledOutWhileQueuedGivesUpItsTurn) {
    start(true, 1);
    plug(dfuMac(1, 0xA1));
    emit restorer_.started("1C3B4A01:1", {"Mac14,2", 0xA1, "A1"});
    plug(dfuMac(2, 0xB2));
    pull(2);
    ticks(unattended::PortCycles::pulledAfterTicks - 1);
    plug(dfuMac(2, 0xB2));
    ticks(1);
    EXPECT_EQ(port(2).phase, PortPhase::queued) << "back before it counted as pulled out";
    pull(2);
    ticks(unattended::PortCycles::pulledAfterTicks);
    EXPECT_EQ(std::tuple(port(2).phase, port(2).reason),
              std::tuple(PortPhase::failed, "pulled out before its restore started"));
    emit restorer_.finished("1C3B4A01:1", true, false, "Successful");
    ticks(5);
    EXPECT_EQ(restorer_.asked, QStringList{"1C3B4A01:1"}) << "no turn for a Mac that left";
}

}  // namespace
}  // namespace bench_testing
