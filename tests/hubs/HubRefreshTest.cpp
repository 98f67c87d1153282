#include "StationFixture.h"

#include <QRegularExpression>

namespace {

using testing_support::StationFixture;

class HubRefresh : public StationFixture {};
class TwoHubRefresh : public StationFixture {
  protected:
    TwoHubRefresh() : StationFixture(2) {}
};

AC2Devices refresh(ZMRAcronameManager& manager) {
    AC2Devices result;
    int calls = 0;
    manager.refreshAcronameDevices([&](AC2Devices entries) {
        result = std::move(entries);
        ++calls;
    });
    EXPECT_EQ(calls, 1);
    return result;
}

TEST_F(TwoHubRefresh, EveryHubGetsFiveEntriesTiedToItsUsablePorts) {
    const AC2Devices entries = refresh(*manager);
    ASSERT_EQ(entries.size(), 10);
    const auto hubs = manager->hubs();
    ASSERT_EQ(hubs.size(), 2u);
    for (qsizetype i = 0; i < entries.size(); ++i) {
        const auto& port = entries[i]->port();
        EXPECT_EQ(port->portID(), std::int64_t(i % 5 + 1));
        EXPECT_EQ(port->hub(), hubs[std::size_t(i / 5)].get());
    }
    EXPECT_EQ(manager->ac2Devices().size(), 10);
    EXPECT_EQ(logLines.mid(0, 3),
              QStringList({"enumerating hubs", "connecting to hub 0", "connecting to hub 1"}));
    EXPECT_EQ(logLines.mid(logLines.size() - 3),
              QStringList({"********** calling attachedDevicesWithCallback",
                           "######## calling attachedDevicesWithCallback CALLBACK CALLED",
                           "ac2Devices count: 10"}));
}

TEST_F(HubRefresh, AHubThatCouldNotBeProbedStillGetsBlankEntries) {
    backend->script("discoverAndConnect", {stem::aErrIO});
    const AC2Devices entries = refresh(*manager);
    ASSERT_EQ(entries.size(), 5);
    for (const auto& entry : entries) {
        EXPECT_EQ(entry->port()->portID(), 0);
        EXPECT_EQ(entry->port()->hub(), nullptr);
    }
    EXPECT_TRUE(alerts.shown().empty());
}

TEST_F(HubRefresh, NoHubsMeansNoEntriesAndNoListing) {
    backend->modules.clear();
    bool listedDevices = false;
    auto env = environment();
    env.listDevices = [&](std::function<void(AC2Devices)>) { listedDevices = true; };
    auto lonely = std::make_shared<ZMRAcronameManager>(env);
    EXPECT_TRUE(refresh(*lonely).empty());
    EXPECT_TRUE(logLines.contains("No hubs found"));
    EXPECT_FALSE(listedDevices);
}

TEST_F(HubRefresh, ListedDevicesAreMatchedToTheirHubSerialOnlyInTheLog) {
    registry.attach({{"idVendor", 0x24FF},
                     {"locationID", 0x14200000},
                     {"kUSBSerialNumberString", "305441741"}});
    for (std::int64_t location : {0x14250000LL, 0x01130000LL}) {
        auto device = std::make_shared<AC2Device>();
        device->setLocationID(location);
        listed.push_back(device);
    }
    const AC2Devices entries = refresh(*manager);
    EXPECT_EQ(entries.size(), 5);  // the listing does not change the entries
    const QStringList matching =
        logLines.filter(QRegularExpression("^(port: |found serial|serialNumberString)"));
    EXPECT_EQ(matching, QStringList({"port: 5", "found serial: 305441741", "port: 3",
                                     "serialNumberString is nil"}));
}

TEST_F(HubRefresh, RefreshDisconnectsThePreviousHubs) {
    refresh(*manager);
    const auto before = manager->hubs();
    refresh(*manager);
    EXPECT_FALSE(before.front()->isConnected());
    EXPECT_TRUE(manager->hubs().front()->isConnected());
    EXPECT_NE(before.front(), manager->hubs().front());
}

}  // namespace
