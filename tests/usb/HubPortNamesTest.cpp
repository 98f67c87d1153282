#include "usb/HubPortNames.h"

#include "usb/UsbRegistry.h"

#include <gtest/gtest.h>

namespace {

usb::PropertyMap benchEntry(qint64 vendor, quint64 location, const QString& serial) {
    return {{usb::keys::vendorID, vendor},
            {usb::keys::locationID, location},
            {usb::keys::serialNumber, serial}};
}

// A bench as the registry shows it: a hub's USB 2 and USB 3 halves and its control interface
// share its serial, a second hub hangs one tier deeper, and a foreign hub carries a serial that
// would read as hexadecimal; a hub with a serial below 0x10 is named as every list names it.
const QList<usb::PropertyMap> kBench = {
    benchEntry(0x24FF, 0x02100000, "1C3B4A01"),   benchEntry(0x24FF, 0x01180000, "1C3B4A01"),
    benchEntry(0x24FF, 0x01400000, "0000000A"),   benchEntry(0x24FF, 0x01100000, "1C3B4A01"),
    benchEntry(0x24FF, 0x01230000, "00C0FFEE"),   benchEntry(0x05E3, 0x03100000, "000000001206"),
    benchEntry(0x05AC, 0x01130000, "H4WGJ2Q7PX"),
};

TEST(HubPortNames, NamesTheUsablePortsBelowEachHubNearestTheRoot) {
    const usb::HubPortNames names(kBench);
    EXPECT_EQ(names.nameOf(0x01130000), "1C3B4A01:3");
    EXPECT_EQ(names.nameOf(0x01235000), "C0FFEE:5") << "one tier deeper, the next nibble";
    EXPECT_EQ(names.nameOf(0x01440000), "0A:4") << "two digits at least, as `hubs` prints it";
    EXPECT_EQ(names.nameOf(0x02130000), "") << "the USB 3 half is not where the Macs are named";
    EXPECT_EQ(names.nameOf(0x01160000), "") << "port 6 is not a usable port";
    EXPECT_EQ(names.nameOf(0x03110000), "") << "below a foreign hub";

    EXPECT_EQ(names.locationOf("1c3b4a01:2"), 0x01120000u);
    EXPECT_EQ(names.locationOf("C0FFEE:1"), 0x01231000u);
    EXPECT_EQ(names.locationOf("1C3B4A02:1"), std::nullopt);
}

TEST(HubPortNames, AHubAtTheDeepestTierHasNoPortLocations) {
    EXPECT_EQ(usb::HubPortNames::portLocation(0x01234560, 2), 0x01234562u);
    EXPECT_EQ(usb::HubPortNames::portLocation(0x01234567, 2), std::nullopt);
    EXPECT_TRUE(usb::HubPortNames({benchEntry(0x24FF, 0x01234567, "1C3B4A01")})
                    .nameOf(0x01234567)
                    .isEmpty());
}

}  // namespace
