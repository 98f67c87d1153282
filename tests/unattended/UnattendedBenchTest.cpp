#include "BenchFixture.h"

#include "app/BenchMap.h"
#include "app/DeviceListModel.h"
#include "support/TestSettings.h"
#include "support/VirtualClock.h"
#include "unattended/BenchPortModel.h"

#include <QSignalSpy>

#include <tuple>

namespace bench_testing {
namespace {
// As on the host's port: a few ticks to show DFU mode after each sequence, three sequences in all,
// then the port asks for a person until that Mac is pulled out.
TEST_F(Bench, AMacThatIgnoresDfuNeedsAttentionAfterTheRetries) {
    plug(bootedMac(1, "STUBBORN"));
    start(false);  // already on the bench: counts as just plugged in
    ASSERT_EQ(driver_.dfuRuns, QStringList{"1C3B4A01:1"});
    for (int attempt = 1; attempt <= UnattendedBench::dfuAttempts; ++attempt) {
        EXPECT_EQ(port(1).phase, PortPhase::dfuSequence);
        driver_.end("1C3B4A01:1", true);
        EXPECT_EQ(port(1).phase, PortPhase::waitingForDFU);
        ticks(6);
        EXPECT_EQ(port(1).phase, PortPhase::waitingForDFU) << "six ticks are still a wait";
        ticks(1);
    }
    EXPECT_EQ(driver_.dfuRuns.size(), 3);
    EXPECT_EQ(std::tuple(port(1).phase, port(1).reason, bench_->summary().needsAttention),
              std::tuple(PortPhase::needsAttention, "not in DFU mode after 3 DFU sequences", 1));
    pull(1);
    EXPECT_EQ(port(1).phase, PortPhase::empty);
    EXPECT_EQ(port(2).phase, PortPhase::empty) << "the other port never moved";
}

// A Mac that shows DFU mode while it is waited for goes on; one plugged in already in DFU mode
// skips the sequence. Without restoring, that is done.
TEST_F(Bench, DfuModeEndsTheCycleWithoutRestoring) {
    start(false);
    plug(bootedMac(1, "A1"));
    driver_.end("1C3B4A01:1", true);
    pull(1);
    EXPECT_EQ(port(1).phase, PortPhase::waitingForDFU) << "a Mac leaves the bus while it resets";
    plug(dfuMac(1, 0xA1));
    EXPECT_EQ(std::tuple(port(1).phase, port(1).ecid), std::tuple(PortPhase::done, 0xA1u));
    plug(dfuMac(2, 0xB2));
    EXPECT_EQ(port(2).phase, PortPhase::done);
    EXPECT_EQ(driver_.dfuRuns, QStringList{"1C3B4A01:1"});
    EXPECT_EQ(bench_->summary().done, 2);
}

// A Mac whose restore failed (pulled out in the middle, here) keeps its port "failed" until
// another Mac arrives there; a Mac that comes back as itself does not start a cycle.
TEST_F(Bench, AnotherMacOnAFailedPortStartsANewCycle) {
    start(true);
    plug(dfuMac(1, 0xA1));
    emit restorer_.started("1C3B4A01:1", {"Mac14,2", 0xA1, "A1"});
    pull(1);
    emit restorer_.finished("1C3B4A01:1", false, false,
                            "The device lost power during the restore.");
    EXPECT_EQ(port(1).phase, PortPhase::failed);
    plug(bootedMac(1, "A1"));
    EXPECT_EQ(port(1).phase, PortPhase::failed) << "the same Mac, back";
    pull(1);
    EXPECT_EQ(port(1).phase, PortPhase::empty);
    plug(bootedMac(1, "C3"));
    EXPECT_EQ(std::tuple(port(1).phase, port(1).serialNumber),
              std::tuple(PortPhase::dfuSequence, "C3"));
}

// Stopping cancels what runs and stops the sequences; the bench says it stopped only once the
// restore under way has ended.
TEST_F(Bench, StopCancelsWhatIsUnderWay) {
    start(true);
    plug(dfuMac(1, 0xA1));
    emit restorer_.started("1C3B4A01:1", {"Mac14,2", 0xA1, "A1"});
    plug(bootedMac(2, "B2"));
    QSignalSpy stopped(bench_.get(), &UnattendedBench::stopped);
    bench_->stop();
    EXPECT_EQ(restorer_.cancels, 1);
    EXPECT_TRUE(driver_.stopped);
    EXPECT_EQ(stopped.size(), 0);
    driver_.end("1C3B4A01:2", false, "not reached");
    emit restorer_.finished("1C3B4A01:1", false, true, "Restore Cancelled");
    EXPECT_EQ(stopped.size(), 1);
    const auto summary = bench_->summary();
    EXPECT_EQ(std::tuple(summary.cancelled, summary.failed, summary.underWay), std::tuple(2, 0, 0));
}

// A hub plugged in while the bench runs brings its ports in, but the hubs are looked for again
// (which reconnects them all) only once no sequence runs; sequences asked meanwhile wait for it.
TEST_F(Bench, AHubPluggedInJoinsOnceNoSequenceRuns) {
    constexpr std::uint64_t secondHub = 0x01200000;
    start(false);
    plug(bootedMac(1, "A1"));
    plug(hub(secondHub, "1C3B4A02"));
    plug(bootedMac(1, "C1", secondHub));
    EXPECT_EQ(driver_.refreshes, 0) << "port 1's sequence runs";
    plug(bootedMac(2, "B2"));
    EXPECT_EQ(port(2).phase, PortPhase::dfuSequence);
    EXPECT_EQ(driver_.dfuRuns, QStringList{"1C3B4A01:1"}) << "held for the refresh";

    driver_.end("1C3B4A01:1", true);
    ASSERT_EQ(driver_.refreshes, 1);
    for (int number = 1; number <= 5; ++number)
        driver_.portList << QString("1C3B4A02:%1").arg(number);
    emit driver_.ready();
    settle();
    EXPECT_EQ(bench_->ports().size(), 7);
    EXPECT_EQ(driver_.dfuRuns, (QStringList{"1C3B4A01:1", "1C3B4A01:2", "1C3B4A02:1"}))
        << "the held sequence, then the Mac already on the new hub";
    plug(bootedMac(2, "C2", secondHub));
    EXPECT_EQ(driver_.refreshes, 1) << "the same hubs: no refresh";
}

// Sequences held for that refresh never began: a stop ends their ports at once, and no refresh
// follows the stop.
TEST_F(Bench, AStopEndsTheSequencesHeldForARefresh) {
    start(false);
    plug(bootedMac(1, "A1"));
    plug(hub(0x01200000, "1C3B4A02"));
    plug(bootedMac(2, "B2"));
    ASSERT_EQ(driver_.dfuRuns, QStringList{"1C3B4A01:1"});
    QSignalSpy stopped(bench_.get(), &UnattendedBench::stopped);
    bench_->stop();
    EXPECT_EQ(std::tuple(port(2).phase, port(2).reason), std::tuple(PortPhase::failed, "stopped"));
    EXPECT_EQ(stopped.size(), 0) << "port 1's sequence still runs";
    driver_.end("1C3B4A01:1", false, "not reached");
    EXPECT_EQ(stopped.size(), 1);
    EXPECT_EQ(driver_.refreshes, 0);
    EXPECT_EQ(driver_.dfuRuns.size(), 1);
    EXPECT_EQ(bench_->summary().cancelled, 2);
}

// While the bench runs, the device table's "Hub : Port" cell and the bench map's tile say where
// each port is in its cycle; a restoring Mac keeps its own state, and a stopped bench leaves
// both as the Macs alone say.
class BenchOnTheDesktop : public Bench {
  protected:
    void SetUp() override {
        map_.setHubPorts({"1C3B4A01:1", "1C3B4A01:2"});
        map_.showPortPhases(ports_);
        devices_.showPortPhases(ports_);
    }
    void startShown(bool restore) {
        start(restore);
        ports_.bind(bench_.get());
        settle();
    }
    // Devices as USB reports them; the model places them on their ports by location.
    void listDfuMac(int port, std::uint64_t ecid) {
        plug(dfuMac(port, ecid));
        devices_.roster().usbDevicesAdded({{0x05AC, "", qint64(portLocation(port)),
                                            "Apple Mobile Device (DFU Mode)", qint64(ecid)}});
        settle();
    }
    // What the views show once the changes have been drawn.
    QString word(int tile) {
        settle();
        return map_.look(map_.tiles().at(tile).state).word;
    }
    QString hubPortCell(int row) {
        settle();
        return devices_.data(devices_.index(row, app::DeviceListModel::HubPort)).toString();
    }

    testing_support::TestSettings settings_;
    testing_support::VirtualClock clock_;
    unattended::BenchPortModel ports_{[this] { return now_; }};
    app::DeviceListModel devices_{{&clock_, [](const AC2Device& mac) {
                                       return usb::HubPortNames({hub()}).nameOf(
                                           std::uint64_t(mac.locationID()));
                                   }}};
    app::BenchMap map_{devices_, 0x100000};
};

TEST_F(BenchOnTheDesktop, PortPhasesShowOnTilesAndInTheHubPortCell) {
    startShown(true);
    plug(bootedMac(2, "B2"));
    EXPECT_EQ(word(1), "Sending DFU");
    driver_.end("1C3B4A01:2", true);
    EXPECT_EQ(word(1), "Waiting for DFU");

    listDfuMac(1, 0xA1);
    ASSERT_EQ(devices_.rowCount(), 1);
    EXPECT_EQ(hubPortCell(0), "1C3B4A01:1 · Queued");
    EXPECT_EQ(devices_.data(devices_.index(0, 0), app::DeviceListModel::HubPortRole), "1C3B4A01:1")
        << "the port alone, for whatever places Macs on ports";
    EXPECT_EQ(word(0), "Queued");
    emit restorer_.started("1C3B4A01:1", {"Macmini9,1", 0xA1, "A1"});
    settle();
    EXPECT_EQ(word(0), "Restoring")
        << "not the Mac's last batch, which the device list still shows";
    emit restorer_.finished("1C3B4A01:1", false, false, "libusbrestore error:21");
    settle();
    EXPECT_EQ(word(0), "Failed");
    EXPECT_EQ(hubPortCell(0), "1C3B4A01:1 · Failed");
    EXPECT_EQ(devices_.data(devices_.index(0, app::DeviceListModel::HubPort), Qt::ToolTipRole),
              "libusbrestore error:21");

    for (int attempt = 0; attempt < UnattendedBench::dfuAttempts; ++attempt) {
        driver_.end("1C3B4A01:2", true);
        ticks(7);
    }
    settle();
    EXPECT_EQ(word(1), "Needs attention");

    ports_.bind(nullptr);
    settle();
    EXPECT_EQ(word(0), "DFU");
    EXPECT_EQ(hubPortCell(0), "1C3B4A01:1");
    EXPECT_EQ(word(1), "Empty") << "the booted Mac is not in the device list here";
}

}  // namespace
}  // namespace bench_testing
