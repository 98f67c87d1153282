// glib before Qt: glib uses `signals` as a name, which Qt defines as a keyword.
#include <umockdev.h>

#include "usb/DeviceIOKit.h"
#include "usb/UdevUsbRegistry.h"
#include "usb/UsbLocation.h"

#include "UsbTestDevices.h"
#include "support/Scripts.h"

#include <gtest/gtest.h>

namespace usb_testing {
namespace {
using testing_support::runLoopUntil;

// A fake sysfs and uevent bus; every test builds its own before it opens a monitor.
class UdevUsbRegistryTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!qEnvironmentVariable("LD_PRELOAD").contains("libumockdev-preload"))
            GTEST_SKIP() << "needs umockdev-wrapper";
        testbed = umockdev_testbed_new();
    }
    void TearDown() override {
        if (testbed)
            g_object_unref(testbed);
    }

    // A device of type usb_device named like the kernel does ("1-2.3").
    QString addDevice(const char* name, const char* vendor, const char* product,
                      const QString& serial, const char* productText) {
        const QByteArray serialBytes = serial.toUtf8();
        const QByteArray path = QByteArray(name);
        const int dash = path.indexOf('-');
        const QByteArray bus = path.left(dash);
        const QByteArray devpath = path.mid(dash + 1);
        gchar* syspath = umockdev_testbed_add_device(
            testbed, "usb", name, nullptr,
            // sysfs attributes
            "idVendor", vendor, "idProduct", product, "busnum", bus.constData(), "devpath",
            devpath.constData(), "devnum", "7", "serial", serialBytes.constData(), "product",
            productText, "manufacturer", "Apple Inc.", nullptr,
            // udev properties
            "DEVTYPE", "usb_device", "PRODUCT",
            QByteArray(vendor).append('/').append(product).append("/100").constData(), nullptr);
        const QString result = QString::fromUtf8(syspath);
        g_free(syspath);
        return result;
    }

    UMockdevTestbed* testbed = nullptr;
};

TEST_F(UdevUsbRegistryTest, ListsUsbDevicesWithLocationAndEcid) {
    addDevice("1-2", "24ff", "0013", "1A2B3C4D", "USBHub3c");
    addDevice("1-2.3", "05ac", "1227", dfuSerial(0x001C2D3E4F506172),
              "Apple Mobile Device (DFU Mode)");
    addDevice("2-1.16", "05ac", "1905", "C02XK1LMQ6NV", "Mac");             // port not encodable
    addDevice("1-4", "0bda", "8153", "ECID:00000000000000FF", "Ethernet");  // not Apple
    addDevice("1-5", "05ac", "1227", dfuSerial(0x8000000000000001),
              "Apple Mobile Device (DFU Mode)");
    gchar* interface = umockdev_testbed_add_device(testbed, "usb", "1-2.3:1.0", nullptr, nullptr,
                                                   "DEVTYPE", "usb_interface", nullptr);
    g_free(interface);

    usb::UdevUsbRegistry registry;
    const auto devices = registry.devices();
    ASSERT_TRUE(devices.has_value());
    ASSERT_EQ(devices->size(), 5);
    QMap<QString, usb::PropertyMap> byName;
    for (const usb::PropertyMap& properties : *devices)
        byName[properties.value("syspath").toString().section('/', -1)] = properties;

    EXPECT_EQ(byName["1-2"].value("locationID").toULongLong(), 0x01200000u);
    EXPECT_EQ(byName["1-2"].value("idVendor").toLongLong(), acroname);
    EXPECT_FALSE(byName["2-1.16"].contains("locationID"))
        << "never 0, which every look-up at 0 would match";
    EXPECT_FALSE(byName["1-5"].contains("UsbAppleDeviceECID"))
        << "does not fit a signed 64-bit number";
    EXPECT_FALSE(byName["1-4"].contains("UsbAppleDeviceECID"));
    EXPECT_EQ(byName["1-4"].value("USB Address").toLongLong(), 7);

    const usb::PropertyMap& dfu = byName["1-2.3"];
    EXPECT_EQ(dfu.value("locationID").toULongLong(), 0x01230000u);
    EXPECT_EQ(dfu.value("idProduct").toLongLong(), 0x1227);
    EXPECT_EQ(dfu.value("UsbAppleDeviceECID").toULongLong(), 0x001C2D3E4F506172u);
    EXPECT_EQ(dfu.value("kUSBProductString").toString(), "Apple Mobile Device (DFU Mode)");

    // What the rest of the system sees through the queries.
    const DeviceIOKit io(registry, [](const QString&) {});
    EXPECT_TRUE(io.deviceInDFUModeWithDeviceAddress(0x01230000, apple));
    EXPECT_EQ(io.vendorDeviceInfoWithDeviceAddress(0x01230000, apple).value("UsbAppleDeviceECID"),
              QString::number(0x001C2D3E4F506172));
    EXPECT_EQ(io.vendorSerialNumberWithDeviceAddress(0x01200000, acroname), "1A2B3C4D");
    EXPECT_TRUE(io.vendorDeviceInfoWithDeviceAddress(0, apple).isEmpty())
        << "the Mac whose port cannot be encoded is not at address 0";
    EXPECT_EQ(DeviceIOKit::deviceInfoWithService(&byName["1-5"]).ecid, 0) << "ignored, not fatal";
}

TEST_F(UdevUsbRegistryTest, ReportsArrivalsAndRemovalsWithTheArrivalProperties) {
    addDevice("1-1", "24ff", "0013", "1A2B3C4D", "USBHub3c");
    usb::UdevUsbRegistry registry;
    QList<usb::PropertyMap> arrived;
    QList<usb::PropertyMap> removed;
    QObject::connect(&registry, &usb::UsbRegistry::deviceArrived,
                     [&](const usb::PropertyMap& p) { arrived << p; });
    QObject::connect(&registry, &usb::UsbRegistry::deviceRemoved,
                     [&](const usb::PropertyMap& p) { removed << p; });

    const QList<usb::PropertyMap> present = registry.startWatching();
    ASSERT_EQ(present.size(), 1);
    EXPECT_EQ(present[0].value("kUSBSerialNumberString").toString(), "1A2B3C4D");

    const QString syspath =
        addDevice("1-1.2", "05ac", "1227", dfuSerial(0xABC), "Apple Mobile Device (DFU Mode)");
    ASSERT_TRUE(runLoopUntil([&] { return arrived.size() == 1; }));
    EXPECT_EQ(arrived[0].value("locationID").toULongLong(), 0x01120000u);
    EXPECT_EQ(arrived[0].value("UsbAppleDeviceECID").toULongLong(), 0xABCu);

    const QByteArray path = syspath.toUtf8();
    umockdev_testbed_uevent(testbed, path.constData(), "remove");
    umockdev_testbed_remove_device(testbed, path.constData());
    ASSERT_TRUE(runLoopUntil([&] { return removed.size() == 1; }));
    EXPECT_EQ(removed[0], arrived[0]);

    // An "add" for a device the listing already reported is not reported twice; its removal
    // still is.
    umockdev_testbed_uevent(testbed, "/sys/devices/1-1", "add");
    umockdev_testbed_uevent(testbed, "/sys/devices/1-1", "remove");
    ASSERT_TRUE(runLoopUntil([&] { return removed.size() == 2; }));
    EXPECT_EQ(arrived.size(), 1);
    EXPECT_EQ(removed[1].value("kUSBSerialNumberString").toString(), "1A2B3C4D");
    registry.stopWatching();
}

TEST(UsbLocationTest, LocationFromBusAndPortPath) {
    EXPECT_EQ(usb::locationIDFor(1, u"2.3.1"), 0x01231000u);
    EXPECT_EQ(usb::locationIDFor(20, u"15.1.2.3.4.5"), 0x14F12345u);
    EXPECT_EQ(usb::locationIDFor(3, u"0"), 0x03000000u);  // root hub
    EXPECT_EQ(usb::locationIDFor(1, u"1.2.3.4.5.6.7"), std::nullopt);
    EXPECT_EQ(usb::locationIDFor(1, u"16"), std::nullopt);
    EXPECT_EQ(usb::locationIDFor(256, u"1"), std::nullopt);
    EXPECT_EQ(usb::locationIDFor(1, u"2..3"), std::nullopt);

    EXPECT_EQ(usb::busPositionFromName(u"3-1.4")->devicePath, "1.4");
    EXPECT_EQ(usb::busPositionFromName(u"usb2")->busNumber, 2);
    EXPECT_EQ(usb::busPositionFromName(u"1-1:1.0"), std::nullopt);

    EXPECT_EQ(usb::ecidFromSerialString(dfuSerial(0x001C2D3E4F506172)), 0x001C2D3E4F506172u);
    EXPECT_EQ(usb::ecidFromSerialString("SRNM:[ECIDLESS] C02XK1"), std::nullopt);
}

}  // namespace
}  // namespace usb_testing
