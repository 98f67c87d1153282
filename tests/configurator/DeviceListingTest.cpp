#include "support/FakeUsbLookups.h"

#include "configurator/AC2Device.h"
#include "configurator/DeviceListing.h"

#include <QFile>

#include <gtest/gtest.h>

namespace {

using configurator::parseDeviceListing;
using testing_support::FakeUsbLookups;

QString fixture(const QString& name) {
    QFile file(QStringLiteral(TARVEL_CONFIGURATOR_FIXTURES "/") + name);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << name.toStdString();
    return QString::fromUtf8(file.readAll());
}

// What a listing and the USB registry fill in, as one line to compare.
QStringList fieldsOf(const AC2Device& device) {
    return {QString::number(device.ecid(), 16),
            device.udid(),
            device.deviceType(),
            device.name(),
            QString::number(device.locationID()),
            device.inDFU() ? "DFU" : "booted",
            device.serialNumber(),
            device.productID()};
}

TEST(DeviceListing, TextWithANulInsideIsKeptNotFatal) {
    testing_support::FakeUsbLookups usb;
    QString listing = fixture("list-two-macs.plist");
    listing.replace("<string>Air 2</string>",
                    QStringLiteral("<string>Air%12</string>").arg(QChar(0)));
    const configurator::DeviceList devices = parseDeviceListing(listing, usb);
    ASSERT_EQ(devices.size(), 2);
    EXPECT_EQ(devices[1]->name(), QStringLiteral("Air%12").arg(QChar(0)));
}

TEST(DeviceListing, CompletesEachReportedDeviceFromTheUsbRegistry) {
    FakeUsbLookups usb;
    // The Mac on the DFU port runs its boot loader; the other one is booted.
    usb.devices[1048576] = {
        {"idProduct", "4647"},
        {"kUSBProductString", "Apple Mobile Device (DFU Mode)"},
        {"kUSBSerialNumberString", "CPID:8103 ECID:0016594A1492801E SRTG:[iBoot-7459.121.3]"}};
    usb.devices[17956864] = {{"idProduct", "6405"}, {"kUSBSerialNumberString", "c02xk1abq6nv"}};

    const configurator::DeviceList devices =
        parseDeviceListing(fixture("list-two-macs.plist"), usb);
    ASSERT_EQ(devices.size(), 2);
    const AC2Device& dfu = *devices[0];
    const AC2Device& booted = *devices[1];
    // An iBoot string is no serial number.
    EXPECT_EQ(fieldsOf(dfu),
              QStringList({"16594a1492801e", "00008110-0016594A1492801E", "Macmini9,1",
                           "Bench Mini 1", "1048576", "DFU", "", "0x1227"}));
    EXPECT_EQ(dfu.ioKitInfo().value("kUSBProductString"), "Apple Mobile Device (DFU Mode)");
    EXPECT_EQ(fieldsOf(booted),
              QStringList({"1a2b3c4d5e6f70", "00008103-001A2B3C4D5E6F70", "MacBookAir10,1", "Air 2",
                           "17956864", "booted", "C02XK1ABQ6NV", "0x1905"}));
    EXPECT_NE(dfu.myIdProperty(), booted.myIdProperty());
    EXPECT_EQ(dfu.myIdProperty(), dfu.myIdProperty().toUpper());
    EXPECT_EQ(dfu.myIdProperty().size(), 36);
    EXPECT_TRUE(usb.asked.contains("dfu 1048576 1452"));
}

TEST(DeviceListing, KeepsWhatTheToolSaidWhenTheRegistryKnowsNothing) {
    FakeUsbLookups usb;
    const configurator::DeviceList devices = parseDeviceListing(fixture("list-partial.plist"), usb);
    // The key missing from "Output" is left out; an ECID without its prefix still gives a record.
    ASSERT_EQ(devices.size(), 2);
    EXPECT_EQ(fieldsOf(*devices[0]),
              QStringList({"1234", "udid-k", "iPad14,1", "Tablet", "0", "booted", "", "0x00"}));
    EXPECT_EQ(devices[1]->ecid(), 0u);
    EXPECT_EQ(devices[1]->name(), "No prefix");
    // Without a locationID only the property look-up is made, at location 0.
    EXPECT_EQ(usb.asked, QStringList({"info 0 1452", "info 0 1452"}));
}

TEST(DeviceListing, YieldsNothingFromHalfADocumentOrAnErrorDocument) {
    FakeUsbLookups usb;
    const QString whole = fixture("list-two-macs.plist");
    const qsizetype cut = whole.indexOf("<key>Output</key>");
    EXPECT_TRUE(parseDeviceListing(whole.left(cut), usb).isEmpty());
    EXPECT_TRUE(parseDeviceListing(whole.mid(cut), usb).isEmpty());
    EXPECT_TRUE(parseDeviceListing(fixture("list-error.plist"), usb).isEmpty());
    EXPECT_TRUE(parseDeviceListing(QString(), usb).isEmpty());
    EXPECT_TRUE(usb.asked.isEmpty());
}

TEST(DeviceListing, OnlyAWholeListingIsReadableAnEmptyOneIncluded) {
    const QString whole = fixture("list-two-macs.plist");
    EXPECT_TRUE(configurator::isReadableDeviceListing(whole));
    EXPECT_TRUE(
        configurator::isReadableDeviceListing("<plist "
                                              "version=\"1.0\"><dict><key>Devices</key><array/"
                                              "><key>Output</key><dict/></dict></plist>\r\n"));
    EXPECT_FALSE(
        configurator::isReadableDeviceListing(whole.left(whole.indexOf("<key>Output</key>"))));
    EXPECT_FALSE(configurator::isReadableDeviceListing(fixture("list-error.plist")))
        << "the tool's error document is no listing";
}

TEST(AC2Device, DescriptionAndDeviceInfoFormatNumbersDifferently) {
    AC2Device device;
    EXPECT_EQ(device.description(),
              "ecid: 0x0, udid: (null), devicetype: (null), locationID: 0, name: (null), "
              "acronamePort; (null)");
    EXPECT_EQ(device.deviceinfo().value("udid"), "");
    device.setEcid(0x00000ABCDEF01234ull);
    device.setUdid("u");
    device.setLocationID(-2);
    EXPECT_EQ(device.description(),
              "ecid: 0xABCDEF01234, udid: u, devicetype: (null), locationID: -2, name: (null), "
              "acronamePort; (null)");
    EXPECT_EQ(device.deviceinfo().value("ecid"), "0xABCDEF01234");
    EXPECT_EQ(device.deviceinfo().value("locationID"), "0xFFFFFFFFFFFFFFFE");
}

}  // namespace
