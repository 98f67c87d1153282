#include "StationFixture.h"

namespace simtest {
namespace {

const QByteArray faultyStation = R"({
  "timing": {"bootSeconds": 4, "dfuSeconds": 1, "restoreSeconds": 10, "reenumerateSeconds": 0.5},
  "hubs": [
    {"serial": "0x0000BEEF", "vanishAfter": 10, "returnAfter": 5,
     "faults": [{"call": "port.setEnabled", "index": 3, "results": [3, 3]},
                {"call": "system.getVersion", "results": [6], "repeat": true},
                {"call": "connect", "results": [3]}],
     "macs": [
       {"port": 1, "ecid": "0x1001", "serialNumber": "AAAA111111", "state": "dfu",
        "restoreFailure": {"atProgress": 0.5, "status": 21, "message": "libusbrestore error:21"}},
       {"port": 2, "ecid": "0x1002", "serialNumber": "BBBB222222", "ignoresDFU": true},
       {"port": 3, "ecid": "0x1003", "serialNumber": "CCCC333333", "state": "recovery"}]},
    {"serial": 48879000}
  ]
})";
constexpr qint64 flaky = 0xBEEF;  // the hub whose calls are scripted to fail

class Faults : public StationTest {
  protected:
    void SetUp() override { startFromJson(faultyStation); }
};

TEST_F(Faults, ScriptedResultCodesAreAnsweredInOrderWithoutActing) {
    EXPECT_EQ(connectHub(flaky), 3);
    EXPECT_EQ(connectHub(flaky), 0);
    EXPECT_EQ(stem("port.setEnabled", flaky, 3, {{"value", 0}}), 3);
    EXPECT_EQ(stem("port.setEnabled", flaky, 2, {{"value", 1}}), 0)
        << "another port is not scripted";
    EXPECT_EQ(stem("port.setEnabled", flaky, 3, {{"value", 0}}), 3);
    EXPECT_EQ(macNamed("CCCC333333").value("onBus").toBool(), true)
        << "a refused call does nothing";
    EXPECT_EQ(stem("port.setEnabled", flaky, 3, {{"value", 0}}), 0);
    clock_.advance(0);
    EXPECT_EQ(macNamed("CCCC333333").value("onBus").toBool(), false);
    EXPECT_EQ(stem("port.setEnabled", flaky, 3, {{"value", 1}}), 0) << "the script is used up";

    for (int i = 0; i < 4; ++i) EXPECT_EQ(stem("system.getVersion", flaky, 0), 6) << "a hard error";
}

TEST_F(Faults, VanishedHubLeavesTheBusAndRefusesCallsUntilReconnected) {
    ASSERT_EQ(connectHub(flaky), 3) << "the scripted first refusal";
    ASSERT_EQ(connectHub(flaky), 0);
    auto discovered = [this] {
        return call("stem.discover", {{"linkType", 1}}).value("specs").toArray();
    };
    ASSERT_EQ(discovered().size(), 2);
    clock_.advance(10);
    ASSERT_EQ(discovered().size(), 1);
    EXPECT_EQ(discovered()[0].toObject().value("serial_num").toInteger(), 48879000);
    EXPECT_EQ(stem("port.getEnabled", flaky, 1), 25);
    EXPECT_FALSE(call("stem.isConnected", {{"serial", flaky}, {"link", links_.value(flaky)}})
                     .value("connected")
                     .toBool());
    EXPECT_EQ(result("stem.connect", {{"linkType", 1}, {"serial", flaky}}), 3);
    EXPECT_TRUE(usbAt(0x01100000).isEmpty());
    EXPECT_TRUE(usbAt(0x01110000).isEmpty()) << "its Macs go with it";
    EXPECT_EQ(eventsNamed("usb.removed").size(), 7u);  // two hub halves, billboard, stem, 3 Macs
    EXPECT_FALSE(macNamed("AAAA111111").value("onBus").toBool());
    EXPECT_EQ(macNamed("AAAA111111").value("state").toString(), "dfu") << "still powered";

    clock_.advance(5);
    EXPECT_EQ(discovered().size(), 2);
    EXPECT_EQ(usbAt(0x01110000).value("idProduct").toInt(), 0x1227);
    EXPECT_EQ(stem("port.getEnabled", flaky, 1), 25) << "the old link died with the hub";
    ASSERT_EQ(connectHub(flaky), 0);
    EXPECT_EQ(stem("port.getEnabled", flaky, 1), 0);
}

TEST_F(Faults, RestoreReportsProgressReenumeratesAndEndsBooted) {
    startFromJson(R"({"timing": {"restoreSeconds": 10, "reenumerateSeconds": 0.5},
        "hubs": [{"serial": 7, "macs": [
        {"port": 4, "ecid": "0xABC", "serialNumber": "DDDD444444", "state": "dfu"}]}]})");
    const qint64 location = macNamed("DDDD444444").value("locationID").toInteger();
    ASSERT_EQ(result("mac.restore", {{"ecid", "0xABC"}, {"ipsw", ""}}), 0);
    EXPECT_EQ(result("mac.restore", {{"ecid", "0xABC"}}), 5);
    EXPECT_EQ(macNamed("DDDD444444").value("state").toString(), "restoring");
    EXPECT_EQ(usbAt(location).value("idProduct").toInt(), 0x1227) << "still the boot ROM";

    // One step a second; the Mac leaves the bus at 0.1 and 0.4 and returns in the next stage.
    const auto stageAt = [&](double seconds) {
        clock_.advance(seconds);
        return usbAt(location).value("kUSBProductString").toString();
    };
    EXPECT_EQ(stageAt(3.2), "") << "between two stages";
    EXPECT_EQ(stageAt(0.5), "Apple Mobile Device (Recovery Mode)");
    EXPECT_EQ(stageAt(2.0), "Apple Mobile Device (Restore Mode)");
    EXPECT_EQ(usbAt(location).value("UsbAppleDeviceECID").toString(), QString::number(0xABC));
    clock_.advance(4.3);
    const auto progress = eventsNamed("restore.progress");
    ASSERT_EQ(progress.size(), 10u);
    double last = -1;
    for (const Event& event : progress) {
        EXPECT_EQ(event.payload.value("ecid").toString(), "0xABC");
        EXPECT_FALSE(event.payload.value("step").toString().isEmpty());
        EXPECT_GE(event.payload.value("progress").toDouble(), last);
        last = event.payload.value("progress").toDouble();
    }
    EXPECT_EQ(last, 1.0);
    const auto finished = eventsNamed("restore.finished");
    ASSERT_EQ(finished.size(), 1u);
    EXPECT_EQ(finished[0].payload.value("status").toInt(), 0);
    clock_.advance(6.5);
    EXPECT_EQ(macNamed("DDDD444444").value("state").toString(), "booted");
}

TEST_F(Faults, RestoreFailsWhereTheStationSaysAndCancelLeavesDfu) {
    ASSERT_EQ(result("mac.restore", {{"ecid", "0x1001"}}), 0);
    ASSERT_EQ(result("mac.restore", {{"ecid", "0x1003"}}), 0) << "from recovery";
    clock_.advance(2);
    ASSERT_EQ(result("mac.cancelRestore", {{"ecid", "0x1003"}}), 0);
    EXPECT_EQ(macNamed("CCCC333333").value("state").toString(), "dfu");
    clock_.advance(10);
    const auto finished = eventsNamed("restore.finished");
    ASSERT_EQ(finished.size(), 2u);
    EXPECT_EQ(finished[0].payload.value("status").toInt(), 23);
    EXPECT_EQ(finished[1].payload.value("ecid").toString(), "0x1001");
    EXPECT_EQ(finished[1].payload.value("status").toInt(), 21);
    EXPECT_EQ(finished[1].payload.value("message").toString(), "libusbrestore error:21");
    for (const Event& event : eventsNamed("restore.progress")) {
        if (event.payload.value("ecid").toString() == "0x1001") {
            EXPECT_LT(event.payload.value("progress").toDouble(), 0.5);
        }
    }
    EXPECT_EQ(macNamed("AAAA111111").value("state").toString(), "recovery");
}

TEST_F(Faults, RestoreIsRefusedForMacsThatCannotBeRestored) {
    EXPECT_EQ(result("mac.restore", {{"ecid", "0x1002"}}), 7) << "booted";
    EXPECT_EQ(result("mac.restore", {{"ecid", "0x9999"}}), 3);
    EXPECT_EQ(result("mac.restore", {{"ecid", "4097"}}), 2);
    EXPECT_EQ(result("mac.cancelRestore", {{"ecid", "0x1001"}}), 7);
}

}  // namespace
}  // namespace simtest
