#include "StationFixture.h"

namespace simtest {
namespace {

using MacBehaviour = DefaultStationTest;

TEST_F(MacBehaviour, DisabledPortDropsTheMacAndEnablingBootsItAfterTheBootDelay) {
    const QString arrival = usbAt(port3).value("sessionID").toString();
    ASSERT_EQ(stem("port.setEnabled", hubA, 3, {{"value", 0}}), 0);
    EXPECT_FALSE(usbAt(port3).isEmpty()) << "the bus changes only after the reply";
    EXPECT_TRUE(eventsNamed("usb.removed").empty());
    clock_.advance(0);
    EXPECT_TRUE(usbAt(port3).isEmpty());
    EXPECT_EQ(macNamed(mac3).value("state").toString(), "off");
    EXPECT_EQ(stem("pd.getCableOrientation", hubA, 3), 0);
    const auto removed = eventsNamed("usb.removed");
    ASSERT_EQ(removed.size(), 1u);
    EXPECT_EQ(removed[0].payload.value("device").toObject().value("sessionID").toString(), arrival);

    ASSERT_EQ(stem("port.setEnabled", hubA, 3, {{"value", 1}}), 0);
    clock_.advance(5.9);
    EXPECT_TRUE(usbAt(port3).isEmpty()) << "still starting up";
    clock_.advance(0.2);
    const QJsonObject back = usbAt(port3);
    EXPECT_EQ(back.value("idProduct").toInt(), 0x1905);
    EXPECT_EQ(back.value("kUSBSerialNumberString").toString(), mac3);
    EXPECT_FALSE(back.contains("UsbAppleDeviceECID"));
    EXPECT_NE(back.value("sessionID").toString(), arrival);
    EXPECT_EQ(macNamed(mac3).value("state").toString(), "booted");
}

TEST_F(MacBehaviour, DfuMessageBringsThePoweredMacBackInDfuMode) {
    negotiate(hubA, 3);
    ASSERT_EQ(message(hubA, 3, dfuBytes), 0);
    clock_.advance(0.4);
    EXPECT_EQ(usbAt(port3).value("idProduct").toInt(), 0x1905) << "still resetting";
    clock_.advance(0.2);
    EXPECT_TRUE(usbAt(port3).isEmpty());
    clock_.advance(2.0);
    const QJsonObject dfu = usbAt(port3);
    EXPECT_EQ(dfu.value("idVendor").toInt(), 0x05AC);
    EXPECT_EQ(dfu.value("idProduct").toInt(), 0x1227);
    EXPECT_EQ(dfu.value("kUSBProductString").toString(), "Apple Mobile Device (DFU Mode)");
    EXPECT_EQ(dfu.value("kUSBSerialNumberString").toString(),
              "CPID:8112 CPRV:11 CPFM:03 SCEP:01 BDID:24 ECID:0000E4C91D2A07B3 IBFL:3C "
              "SRTG:[iBoot-7459.121.3]");
    EXPECT_EQ(dfu.value("UsbAppleDeviceECID").toString(), QString::number(0xE4C91D2A07B3ull));
    EXPECT_EQ(macNamed(mac3).value("state").toString(), "dfu");
    // Only the addressed port's Mac moved.
    EXPECT_EQ(usbAt(0x01120000).value("idProduct").toInt(), 0x1905);
}

TEST_F(MacBehaviour, MessagesThatReachNoRunningMacChangeNothing) {
    for (int port : {2, 3, 6}) negotiate(hubA, port);
    ASSERT_EQ(stem("port.setEnabled", hubA, 2, {{"value", 0}}), 0);
    EXPECT_EQ(message(hubA, 2, dfuBytes), 0);
    EXPECT_EQ(message(hubA, 6, dfuBytes), 0) << "no Mac on port 6";
    EXPECT_EQ(message(hubA, 3, "040000001280ac050701000000000180"), 0) << "unknown message";
    EXPECT_EQ(message(hubA, 3, "040000001280ac050601000000000080"), 0) << "DFU with reboot word";
    clock_.advance(30);
    EXPECT_EQ(macNamed(QStringLiteral("K9D2LM3V7Q")).value("state").toString(), "off");
    EXPECT_EQ(usbAt(port3).value("idProduct").toInt(), 0x1905);
    EXPECT_EQ(stem("pd.setUEIBytes", hubA, 3, {{"option", 47}, {"bytes", QString(dfuBytes)}}), 29);
    EXPECT_EQ(message(hubA, 3, "0400"), 14);
}

TEST_F(MacBehaviour, RebootReturnsBootedAndRepeatedRebootsWhileStartingLandInRecovery) {
    negotiate(hubA, 3);
    ASSERT_EQ(message(hubA, 3, rebootBytes), 0);
    clock_.advance(1);
    ASSERT_EQ(message(hubA, 3, rebootBytes), 0);  // two reboots during start-up: not yet
    clock_.advance(1);
    ASSERT_EQ(message(hubA, 3, rebootBytes), 0);
    clock_.advance(6.5);
    EXPECT_EQ(macNamed(mac3).value("state").toString(), "booted");

    for (int i = 0; i < 4; ++i) {
        ASSERT_EQ(message(hubA, 3, rebootBytes), 0);
        clock_.advance(1.5);
    }
    EXPECT_TRUE(usbAt(port3).isEmpty());
    clock_.advance(6.5);
    const QJsonObject recovery = usbAt(port3);
    EXPECT_EQ(recovery.value("idProduct").toInt(), 0x1281);
    EXPECT_EQ(recovery.value("kUSBProductString").toString(),
              "Apple Mobile Device (Recovery Mode)");
    EXPECT_FALSE(recovery.value("kUSBSerialNumberString").toString().contains("iBoot"));
    EXPECT_TRUE(recovery.value("kUSBSerialNumberString").toString().endsWith("SRNM:[F7NQ4XR2HT]"));
}

TEST_F(MacBehaviour, PowerCycleThenDfuDuringStartUpEndsInDfu) {
    // The port sequences power-cycle a port and send the message before the Mac is up again.
    stem("port.setEnabled", hubA, 3, {{"value", 0}});
    stem("port.setPowerMode", hubA, 3, {{"value", 4}});
    clock_.advance(1);
    stem("port.setEnabled", hubA, 3, {{"value", 1}});
    clock_.advance(3);
    ASSERT_EQ(message(hubA, 3, dfuBytes), 0);
    clock_.advance(2);
    EXPECT_EQ(usbAt(port3).value("idProduct").toInt(), 0x1227);
    clock_.advance(10);
    EXPECT_EQ(usbAt(port3).value("idProduct").toInt(), 0x1227) << "the earlier boot was superseded";
}

TEST_F(MacBehaviour, HubResetPowerCyclesItsMacsAndComesBackWithSavedSettings) {
    stem("port.setPowerMode", hubA, 1, {{"value", 4}});
    ASSERT_EQ(stem("system.save", hubA, 0), 0);
    stem("port.setPowerMode", hubA, 1, {{"value", 1}});
    stem("port.setEnabled", hubA, 2, {{"value", 0}});
    ASSERT_EQ(stem("system.reset", hubA, 0), 0);
    EXPECT_EQ(stem("port.getEnabled", hubA, 1), 25);
    clock_.advance(0);
    EXPECT_TRUE(usbAt(0x01100000).isEmpty());
    clock_.advance(3);
    EXPECT_EQ(usbAt(0x01100000).value("kUSBProductString").toString(), "USBHub3c");
    EXPECT_EQ(stem("port.getEnabled", hubA, 1), 25) << "the reset broke the link";
    ASSERT_EQ(connectHub(hubA), 0);
    EXPECT_EQ(call("stem.port.getPowerMode",
                   {{"serial", hubA}, {"index", 1}, {"link", links_.value(hubA)}})
                  .value("value")
                  .toInt(),
              4);
    clock_.advance(6);
    EXPECT_EQ(usbAt(0x01120000).value("idProduct").toInt(), 0x1905) << "port 2 enabled again";
}

// A technician plugs Mac after Mac into the host's DFU port: each one restored is pulled a few
// seconds later, and the next follows.
TEST_F(MacBehaviour, LocalDfuPortTakesASequenceOfMacs) {
    startFromJson(R"({"timing": {"restoreSeconds": 10}, "hubs": [], "localDFU": [
        {"ecid": "0xA1", "serialNumber": "SEQ1", "unplugAfterRestore": 3},
        {"ecid": "0xA2", "serialNumber": "SEQ2", "plugAfter": 2, "unplugAfter": 5},
        {"ecid": "0xA3", "serialNumber": "SEQ3", "plugAfter": 1}]})");
    auto localMac = [this] { return call("macs.list").value("macs").toArray().last().toObject(); };
    clock_.advance(0);
    EXPECT_EQ(localMac().value("serialNumber").toString(), "SEQ1");
    EXPECT_EQ(result("local.dfu"), 0);
    clock_.advance(2.5);  // off the bus after half a second, back in DFU two seconds later
    ASSERT_EQ(result("mac.restore", {{"ecid", "0xA1"}, {"ipsw", ""}}), 0);
    clock_.advance(12.9);
    EXPECT_EQ(localMac().value("serialNumber").toString(), "SEQ1") << "not pulled yet";
    clock_.advance(0.2);
    EXPECT_TRUE(call("macs.list").value("macs").toArray().isEmpty()) << "the port is empty";
    EXPECT_EQ(result("local.dfu"), 3);
    clock_.advance(2);
    EXPECT_EQ(localMac().value("serialNumber").toString(), "SEQ2");
    // Pulled while restoring: the restore fails.
    call("local.dfu");
    clock_.advance(2.5);
    ASSERT_EQ(result("mac.restore", {{"ecid", "0xA2"}, {"ipsw", ""}}), 0);
    clock_.advance(3);  // five seconds after it was plugged in
    const auto finished = eventsNamed("restore.finished");
    ASSERT_EQ(finished.size(), 2u);
    EXPECT_EQ(finished[1].payload.value("status").toInt(), 1);
    clock_.advance(1);
    EXPECT_EQ(localMac().value("serialNumber").toString(), "SEQ3");
}

// Hub ports take Macs over time too: each port follows its own sequence, a Mac plugged into a
// port gets the port's power, and one pulled at a given restore progress fails its restore.
TEST_F(MacBehaviour, HubPortsTakeMacsOverTime) {
    startFromJson(R"({"timing": {"restoreSeconds": 10}, "hubs": [{"serial": "0x1C3B4A01",
        "plugs": [
        {"port": 1, "ecid": "0xB1", "serialNumber": "P1A", "state": "dfu", "unplugAtProgress": 0.5},
        {"port": 2, "ecid": "0xB2", "serialNumber": "P2A", "plugAfter": 4, "unplugAfter": 3},
        {"port": 1, "ecid": "0xB3", "serialNumber": "P1B", "plugAfter": 2}]}]})");
    clock_.advance(0);
    EXPECT_EQ(usbAt(0x01110000).value("idProduct").toInt(), 0x1227) << "plugged in DFU mode";
    EXPECT_TRUE(usbAt(0x01120000).isEmpty()) << "port 2's Mac comes later";
    EXPECT_EQ(result("mac.restore", {{"ecid", "0xB2"}, {"ipsw", ""}}), 3)
        << "a Mac not plugged in yet is unknown";
    ASSERT_EQ(result("mac.restore", {{"ecid", "0xB1"}, {"ipsw", ""}}), 0);
    clock_.advance(4);
    EXPECT_EQ(usbAt(0x01120000).value("kUSBSerialNumberString").toString(), "P2A");
    clock_.advance(2.1);  // a step a second from the first second on: 0.55 at 6 s
    const auto finished = eventsNamed("restore.finished");
    ASSERT_EQ(finished.size(), 1u);
    EXPECT_EQ(finished[0].payload.value("status").toInt(), 1) << "pulled mid-restore";
    EXPECT_TRUE(usbAt(0x01110000).isEmpty());
    clock_.advance(2);
    EXPECT_EQ(usbAt(0x01110000).value("kUSBSerialNumberString").toString(), "P1B");
    EXPECT_TRUE(usbAt(0x01120000).isEmpty()) << "pulled three seconds after it was plugged";

    // A port disabled when a Mac is plugged in gives it no power until it is enabled.
    ASSERT_EQ(stem("port.setEnabled", hubA, 1, {{"value", 0}}), 0);
    clock_.advance(1);
    EXPECT_TRUE(usbAt(0x01110000).isEmpty());
}

class StrictHardware : public DefaultStationTest {
  protected:
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
    ASSERT_EQ(result("stem.disconnect", {{"serial", hubA}, {"link", link}}), 0);
    EXPECT_EQ(stem("port.getEnabled", hubA, 1), 25);
    EXPECT_EQ(stem("system.save", hubA, 0), 25);
    EXPECT_FALSE(
        call("stem.isConnected", {{"serial", hubA}, {"link", link}}).value("connected").toBool());
    EXPECT_EQ(result("stem.port.getEnabled", {{"serial", hubA}, {"index", 1}}), 25)
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
