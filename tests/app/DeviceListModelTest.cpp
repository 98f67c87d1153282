#include "app/DeviceListModel.h"
#include "app/DevicesCsv.h"

#include "restore/History.h"
#include "support/VirtualClock.h"

#include <gtest/gtest.h>

namespace {

using app::DeviceListModel;

std::shared_ptr<AC2Device> listed(quint64 ecid, const QString& serial, qint64 location,
                                  bool inDFU = true) {
    auto device = std::make_shared<AC2Device>();
    device->setEcid(ecid);
    device->setSerialNumber(serial);
    device->setLocationID(location);
    device->setInDFU(inDFU);
    device->setDeviceType("Macmini9,1");
    device->setUdid(QStringLiteral("00008103-%1").arg(ecid, 16, 16, QLatin1Char('0')).toUpper());
    return device;
}

DeviceIOKitInfo usb(qint64 ecid, const QString& serial, qint64 location, const QString& product) {
    return {1452, serial, location, product, ecid};
}

const QString dfuProduct = "Apple Mobile Device (DFU Mode)";

class DeviceList : public ::testing::Test {
  protected:
    QString cell(int row, int column) const {
        return model.data(model.index(row, column)).toString();
    }

    testing_support::VirtualClock clock;
    DeviceListModel model{{&clock, [](const AC2Device& device) {
                               return device.ecid() == 0xA1 ? QStringLiteral("1C3B4A01:1")
                                                            : QString();
                           }}};
    restore::DeviceRoster& roster = model.roster();
};

TEST_F(DeviceList, ADeviceSeenOnlyOnUSBShowsAndIsJoinedByTheListingByECID) {
    roster.usbDevicesAdded({usb(0x16594A1492801E, "", 0x1110000, dfuProduct)});
    ASSERT_EQ(model.rowCount(), 1);
    EXPECT_EQ(cell(0, DeviceListModel::DFU), "Yes");
    EXPECT_EQ(cell(0, DeviceListModel::Ecid), "0x16594A1492801E");
    const auto row = model.deviceAt(0);

    roster.applyListing({listed(0x16594A1492801E, "", 0x1110000)});
    ASSERT_EQ(model.rowCount(), 1);
    EXPECT_EQ(model.deviceAt(0), row) << "the same record, so a restore's status stays";
    EXPECT_EQ(cell(0, DeviceListModel::Model), "Mac mini (M1, 2020)");
    EXPECT_EQ(cell(0, DeviceListModel::Location), "0x1110000");
}

TEST_F(DeviceList, AMacChangingFromBootedToDFUKeepsItsRowAndStatus) {
    roster.usbDevicesAdded({usb(0, "H4WGJ2Q7PX", 0x1110000, "Mac")});
    model.deviceAt(0)->setRestoreStatus("Successful");
    EXPECT_EQ(cell(0, DeviceListModel::DFU), "No");

    roster.usbDevicesRemoved({usb(0, "H4WGJ2Q7PX", 0x1110000, "Mac")});
    EXPECT_EQ(cell(0, DeviceListModel::Status), "Successful (disconnected)");
    clock.advanceMilliseconds(3000);
    roster.usbDevicesAdded({usb(0x16594A1492801E, "", 0x1110000, dfuProduct)});
    ASSERT_EQ(model.rowCount(), 1);
    EXPECT_EQ(cell(0, DeviceListModel::Serial), "H4WGJ2Q7PX");
    EXPECT_EQ(cell(0, DeviceListModel::Ecid), "0x16594A1492801E");
    EXPECT_EQ(cell(0, DeviceListModel::DFU), "Yes");
    EXPECT_EQ(cell(0, DeviceListModel::Status), "Successful");

    model.deviceAt(0)->setRestoreStatus(QString::number(0x16594A1492801E) + ":Restoring:0.35");
    EXPECT_EQ(cell(0, DeviceListModel::Status), "Restoring") << "the tool's step, without the ECID";
}

TEST_F(DeviceList, SameMacByECIDAndBySerialIsOneRowButOneSerialWithTwoECIDsIsTwo) {
    roster.applyListing({listed(0xA1, "SERIAL1", 0x1110000)});
    roster.usbDevicesAdded({usb(0, "SERIAL1", 0x1110000, "Mac")});
    EXPECT_EQ(model.rowCount(), 1) << "by serial number";
    roster.applyListing({listed(0xA1, "SERIAL1", 0x1110000), listed(0xB2, "SERIAL1", 0x1120000)});
    EXPECT_EQ(model.rowCount(), 2) << "one serial, two ECIDs";
    EXPECT_EQ(roster.rowOf(model.deviceAt(1)), 1);
}

TEST_F(DeviceList, GoneMacsLeaveAfterTheGracePeriodUnlessRestoring) {
    roster.applyListing({listed(0xA1, "", 0x1110000), listed(0xB2, "", 0x1120000)});
    model.deviceAt(1)->setIsRestoring(true);
    roster.applyListing({});
    EXPECT_EQ(model.rowCount(), 2);
    EXPECT_EQ(cell(0, DeviceListModel::Status), "Disconnected");
    EXPECT_EQ(cell(0, DeviceListModel::HubPort), "1C3B4A01:1") << "the hubs' own matching";
    clock.advanceMilliseconds(restore::DeviceRoster::disconnectedGraceSeconds * 1000);
    roster.purgeDisconnected();
    ASSERT_EQ(model.rowCount(), 1);
    EXPECT_EQ(model.deviceAt(0)->ecid(), 0xB2u);
}

TEST_F(DeviceList, TheMergeKeepsAModelOnceReported) {
    const auto modelColumn = [&](int role) {
        return model.index(0, DeviceListModel::Model).data(role);
    };
    const auto listing = [](const QString& deviceType) {
        auto device = listed(0xE1, "", 0x1130000);
        device->setDeviceType(deviceType);
        return device;
    };
    // A Mac in DFU mode names its chip and board on USB before any listing.
    roster.usbDevicesAdded({{1452, "", 0x1130000, dfuProduct, 0xE1, 0x8112, 0x24}});
    EXPECT_EQ(modelColumn(Qt::ToolTipRole).toString(), "Mac14,3");
    // The listing's own model wins; a later listing without one does not erase it.
    roster.applyListing({listing("Mac14,2")});
    EXPECT_EQ(modelColumn(Qt::DisplayRole).toString(), "MacBook Air (13-inch, M2, 2022)");
    roster.applyListing({listing("")});
    EXPECT_EQ(modelColumn(Qt::ToolTipRole).toString(), "Mac14,2");
    // Back on USB under the same ECID, it keeps what it was.
    roster.usbDevicesAdded({{1452, "", 0x1130000, dfuProduct, 0xE1, 0x8103, 0x22}});
    EXPECT_EQ(modelColumn(Qt::ToolTipRole).toString(), "Mac14,2");
}

TEST(DeviceCSV, HeaderThenOneQuotedLinePerDevice) {
    auto plain = listed(0xA1, "C02XYZ", 0x1110000);
    plain->setProductID("0x1227");
    auto awkward = listed(0xB2, "SER,\"7\"", 0x100000);
    awkward->setDeviceType("Mac14,3");
    EXPECT_EQ(app::devicesCSV({plain, awkward}),
              "UDID,ProductID,DeviceType,LocationID,SerialNumber\n"
              "00008103-00000000000000A1,0x1227,\"Macmini9,1\",0x1110000,C02XYZ\n"
              "00008103-00000000000000B2,,\"Mac14,3\",0x100000,\"SER,\"\"7\"\"\"\n");
}

TEST(HistoryCSV, OneLinePerRecord) {
    const restore::History record = restore::History::make(
        0xABC, "SN1", QDateTime(QDate(2026, 11, 22), QTime(9, 30)), "Restore failed, status 1");
    EXPECT_EQ(restore::historyCSV({record}),
              "Device,SerialNumber,Date,Message\n"
              "ABC,SN1,2026-11-22T09:30:00,\"Restore failed, status 1\"\n");
}

}  // namespace
