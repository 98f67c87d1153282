#include "app/DeviceListModel.h"
#include "app/DfuPortLookup.h"
#include "usb/MacModelNames.h"

#include "support/VirtualClock.h"

#include <gtest/gtest.h>

namespace {

using app::DeviceListModel;
using usb::MacModelNames;

TEST(MacModelNames, EveryModelOfTheDfuPortTableHasItsName) {
    const MacModelNames& names = MacModelNames::shipped();
    const app::DfuPortLookup ports;
    ASSERT_FALSE(ports.records().isEmpty());
    for (const app::DfuPortRecord& record : ports.records())
        for (const QString& identifier : record.identifiers)
            EXPECT_FALSE(names.nameOf(identifier).isEmpty()) << qPrintable(identifier);
    EXPECT_EQ(names.nameOf("Macmini9,1"), "Mac mini (M1, 2020)");
    EXPECT_EQ(names.displayName("iPad14,1"), "iPad14,1") << "an unknown model keeps its identifier";
    EXPECT_EQ(names.identifierOfChip(0x8103, 0x26), "MacBookAir10,1");
    EXPECT_EQ(names.identifierOfChip(0x8103, 0x77), "");
}

TEST(MacModelNames, AnUnreadableTableNamesNothing) {
    const MacModelNames names("{\"models\": [{\"name\": \"no identifier\"}]");
    EXPECT_TRUE(names.identifiers().isEmpty());
    EXPECT_EQ(names.displayName("Mac14,3"), "Mac14,3");
}

class ModelColumn : public ::testing::Test {
  protected:
    QVariant model(int role) const {
        return devices.data(devices.index(0, DeviceListModel::Model), role);
    }
    std::shared_ptr<AC2Device> listing(const QString& deviceType) const {
        auto device = std::make_shared<AC2Device>();
        device->setEcid(0xE1);
        device->setLocationID(0x1130000);
        device->setDeviceType(deviceType);
        return device;
    }

    testing_support::VirtualClock clock;
    DeviceListModel devices{{&clock, {}}};
};

TEST_F(ModelColumn, TheMergeKeepsAModelOnceReported) {
    // A Mac in DFU mode names its chip and board on USB before any listing.
    devices.roster().usbDevicesAdded(
        {{1452, "", 0x1130000, "Apple Mobile Device (DFU Mode)", 0xE1, 0x8112, 0x24}});
    EXPECT_EQ(model(Qt::ToolTipRole).toString(), "Mac14,3");
    // The listing's own model wins; a later listing without one does not erase it.
    devices.roster().applyListing({listing("Mac14,2")});
    EXPECT_EQ(model(Qt::DisplayRole).toString(), "MacBook Air (13-inch, M2, 2022)");
    devices.roster().applyListing({listing("")});
    EXPECT_EQ(model(Qt::ToolTipRole).toString(), "Mac14,2");
    // Back on USB under the same ECID, it keeps what it was.
    devices.roster().usbDevicesAdded(
        {{1452, "", 0x1130000, "Apple Mobile Device (DFU Mode)", 0xE1, 0x8103, 0x22}});
    EXPECT_EQ(model(Qt::ToolTipRole).toString(), "Mac14,2");
}

}  // namespace
