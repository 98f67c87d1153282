#include "ConsoleRecorder.h"
#include "FakeStem.h"

#include "hubs/AcronameHub.h"
#include "hubs/AcronamePort.h"
#include "hubs/BrainStemWrapper.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

using testing::ElementsAre;
using testing::IsSupersetOf;
using testing_support::ConsoleRecorder;
using testing_support::FakeBackend;

namespace {

constexpr std::uint32_t kSerial = 0x1234ABCD;

class BrainStemWrapperTest : public testing::Test {
  protected:
    BrainStemWrapperTest() {
        backend->hub(kSerial);
        hub = std::make_shared<AcronameHub>(backend, core::Clock::system(), recorder.console());
        hub->setSerialNumber(kSerial);
    }
    ~BrainStemWrapperTest() override {
        // The driver holds a connected hub; let go of it so nothing outlives the test.
        wrapper.setConnectedHub(nullptr);
    }

    // Linked to the hub without running the connect sequence, for testing single commands.
    void link() {
        ASSERT_TRUE(wrapper.connect());  // the first hub found: the fake's only one
        ASSERT_TRUE(wrapper.isConnected());
        recorder.clear();
    }

    std::shared_ptr<FakeBackend> backend = std::make_shared<FakeBackend>();
    ConsoleRecorder recorder;
    std::shared_ptr<AcronameHub> hub;
    BrainStemWrapper wrapper{backend, recorder.console()};
};

TEST_F(BrainStemWrapperTest, VendorMessagesGoOutByteForByteOnTheirPort) {
    link();
    ASSERT_TRUE(wrapper.dfuPort(3));
    const auto& port3 = backend->hub(kSerial).ports[3];
    EXPECT_EQ(port3.lastUEIOption, 48);
    EXPECT_THAT(port3.lastUEIBytes, ElementsAre(0x04, 0x00, 0x00, 0x00, 0x12, 0x80, 0xac, 0x05,
                                                0x06, 0x01, 0x00, 0x00, 0x00, 0x00, 0x01, 0x80));
    ASSERT_TRUE(wrapper.rebootPort(5));
    EXPECT_THAT(backend->hub(kSerial).ports[5].lastUEIBytes,
                ElementsAre(0x04, 0x00, 0x00, 0x00, 0x12, 0x80, 0xac, 0x05, 0x05, 0x01, 0x00, 0x00,
                            0x00, 0x00, 0x00, 0x80));
    // Both report in the DFU words.
    EXPECT_THAT(recorder.printed(), ElementsAre("DFU port 3, Err: 0\n", "DFU port 5, Err: 0\n"));
}

TEST_F(BrainStemWrapperTest, TransientResultIsRetriedThreeTimesAtMost) {
    link();
    backend->script("port[2].setEnabled", {3, 3, 3, 3});
    EXPECT_FALSE(wrapper.enablePort(2));
    EXPECT_EQ(backend->count("port[2].setEnabled"), 3);

    backend->script("port[4].setEnabled", {3, 0});
    EXPECT_TRUE(wrapper.disablePort(4));
    EXPECT_EQ(backend->count("port[4].setEnabled"), 2);

    // Anything but 3 is final at once.
    backend->script("pd[1].setUEIBytes", {6, 0});
    EXPECT_FALSE(wrapper.dfuPort(1));
    EXPECT_EQ(backend->count("pd[1].setUEIBytes"), 1);

    EXPECT_THAT(
        recorder.printed(),
        ElementsAre("Enable port 2, Err: 3\n", "Disable port 4, Err: 0\n", "DFU port 1, Err: 6\n"));
}

// Lanes and bench ports work one hub from several threads: a port whose message failed must
// be told its own answer, not the success another port's call left on the hub since.
TEST_F(BrainStemWrapperTest, EachThreadReadsTheAnswerToItsOwnLastPortCall) {
    link();
    backend->script("pd[2].setUEIBytes", {6});
    EXPECT_FALSE(wrapper.dfuPort(2));
    std::thread([this] {
        EXPECT_TRUE(wrapper.enablePort(1));
        EXPECT_EQ(wrapper.lastPortResult(), 0);
    }).join();
    EXPECT_EQ(wrapper.lastPortResult(), 6);
    std::int32_t elsewhere = -2;
    std::thread([this, &elsewhere] { elsewhere = wrapper.lastPortResult(); }).join();
    EXPECT_EQ(elsewhere, 0) << "a thread that made no call reads the hub's last answer";
}

TEST_F(BrainStemWrapperTest, PowerRoleSettersReportInTheEnableWords) {
    link();
    backend->script("pd[2].setPowerRole", {3, 3, 3});
    EXPECT_FALSE(wrapper.setPowerRoleToSourceForPort(2));
    EXPECT_EQ(backend->count("pd[2].setPowerRole"), 3);
    EXPECT_TRUE(recorder.logs("error setting power role"));

    EXPECT_TRUE(wrapper.setPowerRoleToSinkForPort(0));
    EXPECT_EQ(backend->hub(kSerial).ports[0].powerRole, 2);
    EXPECT_TRUE(wrapper.isPowerRoleSinkForPort(0));
    EXPECT_THAT(recorder.printed(),
                ElementsAre("Enable port 2, Err: 3\n", "Enable port 0, Err: 0\n",
                            "Set port 0 power mode to source only, Err: 0\n"));
}

TEST_F(BrainStemWrapperTest, PowerModeSettersConfirmWithAReadAndShareWords) {
    link();
    backend->script("port[1].setPowerMode", {3, 3, 0});
    backend->script("port[1].getPowerMode", {3, 0});
    EXPECT_TRUE(wrapper.setPowerModeChargingDownstreamForPort(1));
    EXPECT_EQ(backend->hub(kSerial).ports[1].powerMode, 2);
    EXPECT_EQ(backend->count("port[1].getPowerMode"), 2);

    EXPECT_TRUE(wrapper.setPowerModePowerDeliveryForPort(2));
    EXPECT_TRUE(wrapper.inPDMode(2));

    // A hard failure of the set skips the read and prints nothing.
    backend->script("port[3].setPowerMode", {6});
    EXPECT_FALSE(wrapper.setPowerModeStandardDownstreamForPort(3));
    EXPECT_EQ(backend->count("port[3].getPowerMode"), 0);
    backend->script("port[4].getPowerMode", {3, 3, 3});
    EXPECT_FALSE(wrapper.setPowerModeStandardDownstreamForPort(4));

    backend->script("port[5].getPowerMode", {9});
    EXPECT_FALSE(wrapper.inPDMode(5));
    EXPECT_TRUE(recorder.logs("error getting power role"));

    EXPECT_THAT(recorder.printed(),
                ElementsAre("Set port 1 power mode to standard downstream, Err: 0\n",
                            "Set port 2 power mode to Power Delivery, Err: 0\n",
                            "in PD mode for power 2: 0\n"));
}

TEST_F(BrainStemWrapperTest, ConnectSharesTheTotalLimitAmongPortsOneToFive) {
    // An unknown source makes the total -1, and each port's share of it wraps as unsigned.
    for (auto [source, share, line] : {std::tuple{7, 16665u, "source is 7"},
                                       std::tuple{9, 0xFFFFFFFFu, "invalid power source: 9"}}) {
        backend->hub(kSerial).inputPowerSource = std::uint8_t(source);
        ASSERT_TRUE(wrapper.connect(hub));
        const auto& state = backend->hub(kSerial);
        for (int port = 1; port <= 5; ++port) {
            EXPECT_EQ(state.ports[port].powerLimit, share) << port;
            EXPECT_EQ(state.ports[port].powerRole, 1) << port;
        }
        EXPECT_EQ(state.ports[6].powerLimit, 0u);
        EXPECT_TRUE(recorder.logs(line));
    }
    EXPECT_EQ(backend->hub(kSerial).powerLimitMax, 250000u);
    EXPECT_EQ(backend->count("pd[1].setOverride"), 0);  // no override, whatever the name says
}

TEST_F(BrainStemWrapperTest, UnregulatedSupplyReadsTheMaximumLimit) {
    backend->hub(kSerial).inputPowerSource = 8;
    backend->hub(kSerial).powerLimitMax = 60010;
    link();
    EXPECT_EQ(wrapper.hubTotalPowerLimit(), 60010u);
    backend->script("system.getPowerLimitMax", {3, 3, 3});
    EXPECT_EQ(wrapper.hubTotalPowerLimit(), 0u);
    EXPECT_TRUE(recorder.logs("error getting getPowerLimitMax"));
    backend->script("system.getInputPowerSource", {6});
    EXPECT_EQ(wrapper.hubTotalPowerLimit(), 0u);
    EXPECT_TRUE(recorder.logs("error getting getInputPowerSource"));
}

TEST_F(BrainStemWrapperTest, ConnectProbesSevenPortsAndReadsTheFirmwareVersion) {
    auto& state = backend->hub(kSerial);
    state.ports[1].vbusVoltage = 20123456;
    state.ports[1].vbusCurrent = -1500000;
    state.ports[1].orientation = 2;
    state.ports[2].orientation = 0;  // enabled, but nothing attached
    state.ports[3].enabled = 0;
    state.ports[3].orientation = 1;
    backend->script("pd[4].getCableOrientation", {6});
    backend->script("port[5].getEnabled", {25});
    backend->script("port[1].getVconnVoltage", {6});
    state.ports[1].vconnVoltage = 5000000;

    ASSERT_TRUE(wrapper.connect(hub));
    EXPECT_EQ(wrapper.connectedHub(), hub);
    QStringList probed;  // "port: enabled connected orientation"
    for (const auto& port : hub->ports()) {
        EXPECT_EQ(port->hub(), hub.get());
        probed << QStringLiteral("%1: %2 %3 %4")
                      .arg(port->portID())
                      .arg(port->isEnabled())
                      .arg(port->isConnected())
                      .arg(port->cableOrientation());
    }
    EXPECT_EQ(probed, QStringList({"0: 1 0 0", "1: 1 1 2", "2: 1 0 0", "3: 0 1 1", "4: 1 0 0",
                                   "5: 0 0 0", "6: 1 0 0"}));
    const auto port1 = hub->ports()[1];
    EXPECT_FLOAT_EQ(port1->vBusVoltage(), 20.123456f);
    EXPECT_FLOAT_EQ(port1->vBusCurrent(), -1.5f);
    EXPECT_FLOAT_EQ(port1->vConnVoltage(), 0.0f);  // failed read
    EXPECT_EQ(backend->count("port[7].getEnabled"), 0);
    EXPECT_THAT(
        recorder.logged(),
        IsSupersetOf({"Port 1 connected", "Port 3 NOT connected", "Port 5 Error: Connection",
                      "Invalid orientation for port 4", "orientation correct for port 2"}));
    EXPECT_EQ(hub->firmwareVersion(), "2.10.3");
}

TEST_F(BrainStemWrapperTest, PortZeroIsMadeASinkAndSavedOnlyWhenItWasNot) {
    backend->hub(kSerial).ports[0].powerRole = 1;
    ASSERT_TRUE(wrapper.connect(hub));
    EXPECT_EQ(backend->hub(kSerial).ports[0].powerRole, 2);
    EXPECT_EQ(backend->hub(kSerial).saves, 1);
    EXPECT_TRUE(recorder.logs("saving"));

    ASSERT_TRUE(wrapper.connect(hub));  // reconnect: already a sink
    EXPECT_EQ(backend->hub(kSerial).saves, 1);
    EXPECT_EQ(backend->count("disconnect"), 1);  // the old link was dropped first
}

TEST_F(BrainStemWrapperTest, HubThatCannotBeFoundLeavesItsRecordAlone) {
    auto previous = std::make_shared<AcronamePort>();
    hub->setPorts({previous});
    hub->setSerialNumber(0xDEAD);
    EXPECT_TRUE(wrapper.connect(hub));
    EXPECT_EQ(wrapper.connectedHub(), nullptr);
    EXPECT_THAT(hub->ports(), ElementsAre(previous));
    EXPECT_TRUE(recorder.logs("Error connecting"));
    EXPECT_FALSE(wrapper.makeSourceWithNoNegotiation());
    EXPECT_EQ(hub->firmwareVersion(), "");
}

TEST_F(BrainStemWrapperTest, FirmwareVersionFallsBackToUnknown) {
    backend->script("system.getVersion", {3, 3, 3});
    ASSERT_TRUE(wrapper.connect(hub));
    EXPECT_EQ(hub->firmwareVersion(), "Unknown");
    EXPECT_TRUE(recorder.logs("error getting firmwareVersion number: 3"));
}

TEST_F(BrainStemWrapperTest, DisconnectTellsOnlyWhenTheLibraryDid) {
    EXPECT_TRUE(wrapper.disconnect());  // never linked
    ASSERT_TRUE(wrapper.connect(hub));
    recorder.clear();
    EXPECT_TRUE(wrapper.disconnect());
    EXPECT_THAT(recorder.printed(), ElementsAre("disconnected from hub\n"));
    EXPECT_THAT(recorder.logged(), ElementsAre("disconnecting in BrainStemWrapper"));
}

TEST(BrainStemWrapperDiscovery, HubsCarryTheIdentityDiscoveryReported) {
    auto backend = std::make_shared<FakeBackend>();
    ConsoleRecorder recorder;
    EXPECT_TRUE(BrainStemWrapper::hubs(backend, core::Clock::system(), recorder.console()).empty());
    EXPECT_THAT(recorder.logged(), ElementsAre("error getting hubs. Error code 3"));

    backend->modules = {{stem::LinkType::USB, 10, 6, 0, 77, 24, 0x1111},
                        {stem::LinkType::USB, 305441741, 8, 2, 78, 24, 0x2222}};
    const auto hubs = BrainStemWrapper::hubs(backend, core::Clock::system(), recorder.console());
    EXPECT_EQ(backend->lastNetworkInterface, 0x0100007Fu);
    ASSERT_EQ(hubs.size(), 2u);
    EXPECT_EQ(std::tuple(hubs[1]->serialNumber(), hubs[1]->acronameModule(), hubs[1]->router(),
                         hubs[1]->routerSerialNumber(), hubs[1]->model(), hubs[1]->usbID()),
              std::tuple(305441741u, 8u, 2u, 78u, 24u, 0x2222u));
    EXPECT_TRUE(hubs[0]->ports().empty());
}

}  // namespace
