#include "usb/DeviceIOKit.h"
#include "usb/MemoryUsbRegistry.h"
#include "usb/SimulatorUsbRegistry.h"

#include "UsbTestDevices.h"

#include <QByteArray>

#include <gtest/gtest.h>

namespace usb_testing {
namespace {
class DeviceIOKitTest : public ::testing::Test {
  protected:
    DeviceIOKit queries() {
        return DeviceIOKit(registry, [this](const QString& line) { logLines << line; });
    }

    usb::MemoryUsbRegistry registry;
    QStringList logLines;
};

TEST_F(DeviceIOKitTest, PropertyDictionaryComesFromTheFirstMatchAndKeepsOnlyTextAndNumbers) {
    usb::PropertyMap first = device(apple, 0x14120000, "C02XK1", "Mac");
    first["UsbAppleDeviceECID"] = qulonglong(0x1A2B3C4D5E6F7788);
    first["bcdDevice"] = 0x0102;
    first["raw"] = QByteArray("\x01\x02");
    first["list"] = QVariantList{1, 2};
    first["Built-In"] = true;
    registry.attach(device(acroname, 0x14120000, "HUBSERIAL", "USBHub3c"));  // other vendor
    registry.attach(first);
    registry.attach(device(apple, 0x14120000, "SECOND", "Mac"));  // same vendor and location

    // The raw bytes, the list and the flag are left out.
    EXPECT_EQ(queries().vendorDeviceInfoWithDeviceAddress(0x14120000, apple),
              (QMap<QString, QString>{{"kUSBSerialNumberString", "C02XK1"},
                                      {"idVendor", "1452"},
                                      {"idProduct", "6405"},
                                      {"locationID", QString::number(0x14120000)},
                                      {"kUSBProductString", "Mac"},
                                      {"UsbAppleDeviceECID", "1885667171979196296"},
                                      {"bcdDevice", "258"}}));
    EXPECT_EQ(queries().vendorSerialNumberWithDeviceAddress(0x14120000, apple), "C02XK1");
    EXPECT_EQ(queries().vendorSerialNumberWithDeviceAddress(0x14120000, acroname), "HUBSERIAL");
}

TEST_F(DeviceIOKitTest, NoMatchGivesEmptyAnswers) {
    registry.attach(device(apple, 0x14120000, "C02XK1", "Apple Mobile Device (DFU Mode)"));
    usb::PropertyMap withoutSerial = device(apple, 0x14130000, "", "Mac");
    withoutSerial.remove("kUSBSerialNumberString");
    registry.attach(withoutSerial);

    EXPECT_TRUE(queries().vendorDeviceInfoWithDeviceAddress(0x14110000, apple).isEmpty());
    EXPECT_EQ(queries().vendorSerialNumberWithDeviceAddress(0x14120000, acroname), std::nullopt);
    EXPECT_EQ(queries().vendorSerialNumberWithDeviceAddress(0x14130000, apple), std::nullopt);
    EXPECT_FALSE(queries().deviceInDFUModeWithDeviceAddress(0x14110000, apple));

    registry.setUnreadable(true);
    EXPECT_TRUE(queries().vendorDeviceInfoWithDeviceAddress(0x14120000, apple).isEmpty());
    EXPECT_FALSE(queries().deviceInDFUModeWithDeviceAddress(0x14120000, apple));
}

TEST_F(DeviceIOKitTest, SerialNormalisation) {
    EXPECT_EQ(DeviceIOKit::normalizedSerialNumberWithSerialNumber(std::nullopt), std::nullopt);
    EXPECT_EQ(DeviceIOKit::normalizedSerialNumberWithSerialNumber("c02xk1lmq6nv"), "C02XK1LMQ6NV");
    EXPECT_EQ(DeviceIOKit::normalizedSerialNumberWithSerialNumber("ABC-123"), std::nullopt);
    EXPECT_EQ(DeviceIOKit::normalizedSerialNumberWithSerialNumber("cpid:8103 ecid:001A"),
              std::nullopt);
    EXPECT_EQ(DeviceIOKit::normalizedSerialNumberWithSerialNumber(""), "");
}

TEST_F(DeviceIOKitTest, DfuDetectionIsCaseSensitiveAndPrefersTheSerial) {
    const struct {
        qulonglong location;
        QString serial, product;
        bool dfu;
    } cases[] = {{0x00100000, dfuSerial(0x1234), "Booted Mac", true},
                 {0x14110000, "C02XK1", "Apple Mobile Device (DFU Mode)", true},
                 {0x14120000, "C02XK2", "Apple Debug USB", true},
                 {0x14130000, "C02XK3", "apple mobile device (dfu mode)", false},
                 {0x14140000, "ibootless", "Apple Mobile Device (Recovery Mode)", false}};
    for (const auto& c : cases) registry.attach(device(apple, c.location, c.serial, c.product));
    const DeviceIOKit io = queries();
    for (const auto& c : cases)
        EXPECT_EQ(io.deviceInDFUModeWithDeviceAddress(c.location, apple), c.dfu)
            << c.product.toStdString();
    EXPECT_FALSE(io.deviceInDFUModeWithDeviceAddress(0x14110000, acroname));
}

TEST_F(DeviceIOKitTest, HubAddressArithmeticAndItsLogLines) {
    const DeviceIOKit io = queries();
    EXPECT_EQ(io.hubAddressWithDeviceAddress(0x14120000), 0x14100000u);
    EXPECT_EQ(io.hubAddressWithDeviceAddress(0x14100000), 0x14100000u);
    EXPECT_EQ(io.hubAddressWithDeviceAddress(0x00000123), 0x00000120u);
    EXPECT_EQ(io.hubAddressWithDeviceAddress(0x01230000), 0x01200000u);
    EXPECT_EQ(io.hubAddressWithDeviceAddress(0x0102034500000000), 0x0102034000000000u);
    EXPECT_EQ(io.hubAddressWithDeviceAddress(0x0700000000000000), 0x0000000000000000u);
    EXPECT_EQ(logLines.mid(0, 2), QStringList({"hubAddress: 336723968", "hub: 336592896"}));

    logLines.clear();
    EXPECT_EQ(io.hubAddressWithDeviceAddress(0), 0u);
    EXPECT_EQ(logLines, QStringList({"hubAddress: 0", "deviceAddress = 0"}));
}

TEST_F(DeviceIOKitTest, RecordFromAService) {
    usb::PropertyMap dfu =
        device(apple, 0x01230000, dfuSerial(0xABCDEF), "Apple Mobile Device (DFU Mode)");
    dfu["UsbAppleDeviceECID"] = qulonglong(0xABCDEF);
    // The boot ROM's serial names its chip and board, which tell the model before any listing.
    EXPECT_EQ(DeviceIOKit::deviceInfoWithService(&dfu),
              (DeviceIOKitInfo{apple, "", 0x01230000, "Apple Mobile Device (DFU Mode)", 0xABCDEF,
                               0x8103, 0x26}));

    const usb::PropertyMap booted = device(apple, 0x14120000, "c02xk1", "Mac");
    EXPECT_EQ(DeviceIOKit::deviceInfoWithService(&booted),
              (DeviceIOKitInfo{apple, "C02XK1", 0x14120000, "Mac", 0}));

    usb::PropertyMap noVendor = booted;
    noVendor.remove("idVendor");
    EXPECT_EQ(DeviceIOKit::deviceInfoWithService(&noVendor), DeviceIOKitInfo{});
    EXPECT_EQ(DeviceIOKit::deviceInfoWithService(nullptr), DeviceIOKitInfo{});

    usb::PropertyMap textVendor = booted;  // a value of the wrong type is as good as missing
    textVendor["idVendor"] = "1452";
    EXPECT_EQ(DeviceIOKit::deviceInfoWithService(&textVendor), DeviceIOKitInfo{});

    // JSON numbers are doubles: an ECID above 2^53 comes from the simulator as decimal text and
    // must reach the record as the exact integer.
    const usb::PropertyMap simulated = usb::SimulatorUsbRegistry::propertiesFromJson(
        {{"idVendor", 1452},
         {"locationID", 0x01110000},
         {"kUSBSerialNumberString", dfuSerial(0x0123456789ABCDEF)},
         {"UsbAppleDeviceECID", QString::number(0x0123456789ABCDEFull)}});
    EXPECT_EQ(DeviceIOKit::deviceInfoWithService(&simulated),
              (DeviceIOKitInfo{apple, "", 0x01110000, "", 0x0123456789ABCDEF, 0x8103, 0x26}));
}

TEST(DeviceIOKitDeathTest, NegativeVendorOrEcidStopsTheProcess) {
    usb::PropertyMap negativeVendor = device(-1, 0x14120000, "C02XK1", "Mac");
    EXPECT_DEATH(DeviceIOKit::deviceInfoWithService(&negativeVendor), "negative idVendor");
    usb::PropertyMap hugeEcid = device(apple, 0x14120000, "C02XK1", "Mac");
    hugeEcid["UsbAppleDeviceECID"] = qulonglong(0x8000000000000001);
    EXPECT_DEATH(DeviceIOKit::deviceInfoWithService(&hugeEcid), "negative ECID");
}

}  // namespace
}  // namespace usb_testing
