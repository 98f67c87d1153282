#include "StationFixture.h"

namespace simtest {
namespace {

class StrictHardware : public StationTest {
  protected:
    void SetUp() override { start(sim::defaultStation()); }

    QString stateAfterDfuMessage(int port) {
        EXPECT_EQ(message(hubA, port, dfuBytes), 0) << "the wire never refuses a message";
        clock_.advance(10);
        return macNamed(mac3).value("state").toString();
    }
};

TEST_F(StrictHardware, DfuMessageNeedsAPowerDeliveryContract) {
    // Charging mode, as the hub starts: no contract, so the message goes nowhere.
    EXPECT_EQ(stateAfterDfuMessage(3), "booted");

    // The wrong mode number for power delivery is no better.
    ASSERT_EQ(stem("port.setPowerMode", hubA, 3, {{"value", 3}}), 0);
    clock_.advance(5);
    EXPECT_EQ(stateAfterDfuMessage(3), "booted");

    // Power delivery, but the message is sent before the contract is agreed.
    ASSERT_EQ(stem("port.setPowerMode", hubA, 3, {{"value", 4}}), 0);
    clock_.advance(1.9);
    EXPECT_EQ(stateAfterDfuMessage(3), "booted");
}

TEST_F(StrictHardware, ContractStartsOverWhenThePortIsPowerCycled) {
    negotiate(hubA, 3);
    ASSERT_EQ(stem("port.setEnabled", hubA, 3, {{"value", 0}}), 0);
    clock_.advance(1);
    ASSERT_EQ(stem("port.setEnabled", hubA, 3, {{"value", 1}}), 0);
    clock_.advance(1);
    EXPECT_EQ(stateAfterDfuMessage(3), "booted") << "one second after enable is too early";

    ASSERT_EQ(stem("pd.setPowerRole", hubA, 3, {{"value", 2}}), 0);
    clock_.advance(5);
    EXPECT_EQ(stateAfterDfuMessage(3), "booted") << "a sink port supplies no contract";

    ASSERT_EQ(stem("pd.setPowerRole", hubA, 3, {{"value", 1}}), 0);
    clock_.advance(2);
    EXPECT_EQ(stateAfterDfuMessage(3), "dfu");
}

TEST_F(StrictHardware, CallsOnADisconnectedLinkAnswerTheConnectionError) {
    ASSERT_EQ(stem("port.getEnabled", hubA, 1), 0);
    const qint64 link = links_.value(hubA);
    ASSERT_EQ(call("stem.disconnect", {{"serial", hubA}, {"link", link}}).value("result").toInt(),
              0);
    EXPECT_EQ(stem("port.getEnabled", hubA, 1), 25);
    EXPECT_EQ(stem("system.save", hubA, 0), 25);
    EXPECT_FALSE(
        call("stem.isConnected", {{"serial", hubA}, {"link", link}}).value("connected").toBool());
    EXPECT_EQ(
        call("stem.port.getEnabled", {{"serial", hubA}, {"index", 1}}).value("result").toInt(), 25)
        << "no link at all";

    // Another link to the same hub is not affected, and a new connect works again.
    ASSERT_EQ(connectHub(hubA), 0);
    EXPECT_NE(links_.value(hubA), link);
    EXPECT_EQ(stem("port.getEnabled", hubA, 1), 0);
}

TEST_F(StrictHardware, MacsSitOnAnyPortAndReportTheirModelsBootRom) {
    startFromJson(R"({"timing": {"pdContractSeconds": 0, "leaveBusSeconds": 0},
        "hubs": [{"serial": 9, "macs": [
        {"port": 0, "ecid": "0x10", "serialNumber": "C02-ZZ-0001", "deviceType": "Mac14,2"},
        {"port": 7, "ecid": "0x11", "serialNumber": "PORTSEVEN1", "deviceType": "Mac14,2",
         "state": "dfu"}]}]})");
    clock_.advance(0);
    const qint64 hub = 0x01100000;
    EXPECT_EQ(usbAt(hub | 9 << 16).value("kUSBSerialNumberString").toString(), "C02-ZZ-0001");
    const QString serial = usbAt(hub | 7 << 16).value("kUSBSerialNumberString").toString();
    EXPECT_TRUE(
        serial.startsWith("CPID:8112 CPRV:11 CPFM:03 SCEP:01 BDID:28 ECID:0000000000000011"))
        << serial.toStdString();
    EXPECT_EQ(macNamed("PORTSEVEN1").value("udid").toString(), "00008112-0000000000000011");
}

}  // namespace
}  // namespace simtest
