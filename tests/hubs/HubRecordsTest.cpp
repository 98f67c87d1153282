#include "ConsoleRecorder.h"
#include "FakeStem.h"
#include "support/VirtualClock.h"

#include "core/ZMRUnifiedLogger.h"
#include "hubs/AcronameHub.h"
#include "hubs/AcronamePort.h"
#include "hubs/BrainStemWrapper.h"
#include "station/ZMRAcronameManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing_support::ConsoleRecorder;
using testing_support::FakeBackend;
using testing_support::VirtualClock;

namespace {

class HubRecordsTest : public testing::Test {
protected:
    HubRecordsTest() { backend->hub(305441741); }

    std::shared_ptr<AcronameHub> makeHub(std::uint32_t serial = 305441741) {
        auto hub = std::make_shared<AcronameHub>(backend, clock, recorder.console());
        hub->setSerialNumber(serial);
        return hub;
    }

    std::shared_ptr<FakeBackend> backend = std::make_shared<FakeBackend>();
    VirtualClock clock;
    ConsoleRecorder recorder;
};

TEST_F(HubRecordsTest, ModelNameIsTheSerialInHexAndDescriptionsShowTheModelAsModule) {
    EXPECT_EQ(makeHub(305441741)->modelName(), "1234ABCD");
    EXPECT_EQ(makeHub(0xFFFFFFFF)->modelName(), "FFFFFFFF");
    auto hub = makeHub(10);
    EXPECT_EQ(hub->modelName(), "0A");
    hub->setModel(24);
    hub->setAcronameModule(6);
    hub->setRouter(2);
    hub->setRouterSerialNumber(11);
    hub->setUsbID(4660);
    const QString expected =
        "model: 24, router: 2, module: 24, serial: 10, routerSerial: 11, usbID: 4660";
    EXPECT_EQ(hub->description(), expected);
    AcronamePort port;
    port.setPortID(3);
    port.setHub(hub.get());
    port.setIsConnected(true);
    EXPECT_EQ(port.description(), "portID: 3, hub: " + expected + ", isConnected:1");
}

// Every front end runs its sequences on the process defaults, and a technician reads the log
// after the fact: the port that stopped a sequence is there at level 0, named as on the bench.
TEST_F(HubRecordsTest, TheProcessDefaultsLogEveryPortFailureWithHubAndPort) {
    const auto environment = ZMRAcronameManagerEnvironment::processDefaults(std::nullopt);
    ASSERT_TRUE(environment.portFailed);
    auto hub = makeHub(0x1C3B4A01);
    AcronamePort port;
    port.setPortID(3);
    port.setHub(hub.get());
    environment.portFailed(port, "DFU command");
    EXPECT_EQ(ZMRUnifiedLogger::sharedLogger().lastLine(), "Port 1C3B4A01:3 failed: DFU command");
}

TEST_F(HubRecordsTest, NeverConnectedHubSendsNothing) {
    auto hub = makeHub();
    EXPECT_FALSE(hub->dfuPort(1));
    EXPECT_FALSE(hub->enablePort(1));
    EXPECT_FALSE(hub->inPDModeForPort(1));
    EXPECT_FALSE(hub->setPowerLimit(1000, 1));
    EXPECT_FALSE(hub->isConnected());
    hub->toggleLED();
    hub->rebootHub();
    EXPECT_TRUE(backend->calls().empty());
    EXPECT_EQ(backend->modulesCreated, 0);
    EXPECT_EQ(hub->brainStemWrapper(), nullptr);
}

TEST_F(HubRecordsTest, CommandingOperationsYieldFirstAndTruncatePortNumbers) {
    auto hub = makeHub();
    ASSERT_TRUE(hub->connect());
    ASSERT_TRUE(hub->isConnected());
    const std::size_t sleepsBefore = clock.sleeps().size();

    EXPECT_TRUE(hub->rebootPort(1));
    EXPECT_TRUE(hub->dfuPort(2 + 256));  // only the low byte reaches the hub
    EXPECT_TRUE(hub->disablePort(3));
    EXPECT_TRUE(hub->enablePort(3));
    EXPECT_TRUE(hub->setPowerModeChargingDownstreamForPort(4));
    EXPECT_TRUE(hub->setPowerModeStandardDownstreamForPort(4));
    EXPECT_TRUE(hub->setPowerModePowerDeliveryForPort(5));
    EXPECT_TRUE(hub->inPDModeForPort(5));
    EXPECT_TRUE(hub->setPowerLimit(0xFFFFFFFF, 6));

    const auto sleeps = clock.sleeps();
    const VirtualClock::Sleep yield{VirtualClock::Sleep::Unit::Microseconds, 0};
    EXPECT_EQ(sleeps.size() - sleepsBefore, 7u);
    for (std::size_t i = sleepsBefore; i < sleeps.size(); ++i) EXPECT_EQ(sleeps[i], yield);
    EXPECT_EQ(backend->count("pd[2].setUEIBytes"), 1);
    EXPECT_EQ(backend->hub(305441741).ports[6].powerLimit, 0xFFFFFFFFu);
    EXPECT_TRUE(hub->disconnect());
}

TEST_F(HubRecordsTest, DisconnectDropsTheDriverButKeepsThePorts) {
    auto hub = makeHub();
    ASSERT_TRUE(hub->connect());
    const auto wrapper = hub->brainStemWrapper();
    ASSERT_NE(wrapper, nullptr);
    EXPECT_EQ(wrapper->connectedHub(), hub);
    const auto ports = hub->ports();
    ASSERT_EQ(ports.size(), 7u);

    EXPECT_TRUE(hub->disconnect());
    EXPECT_EQ(hub->brainStemWrapper(), nullptr);
    EXPECT_FALSE(hub->isConnected());
    EXPECT_EQ(hub->ports(), ports);
    EXPECT_FALSE(hub->dfuPort(1));

    // Reconnecting builds a new driver and fresh port snapshots.
    ASSERT_TRUE(hub->connect());
    EXPECT_NE(hub->ports()[1], ports[1]);
    EXPECT_TRUE(hub->disconnect());
}

TEST_F(HubRecordsTest, DisconnectThroughAPortKeepsTheHubAliveUntilItReturns) {
    // The driver may be the hub's only owner; disconnecting through a port's plain pointer
    // must not pull the hub away under its own feet.
    AcronameHub* raw = nullptr;
    {
        auto hub = makeHub();
        ASSERT_TRUE(hub->connect());
        raw = hub->ports()[0]->hub();
    }
    EXPECT_TRUE(raw->disconnect());
    EXPECT_EQ(backend->count("disconnect"), 1);
}

}  // namespace
