#include "StationFixture.h"

#include <QFile>
#include <QSet>
#include <QTemporaryDir>

#include <sys/stat.h>

namespace simtest {
namespace {

QStringList errorsOf(const QByteArray& json) {
    const sim::StationLoad load = sim::parseStation(json, QStringLiteral("bench.json"));
    EXPECT_EQ(load.station.has_value(), load.errors.isEmpty());
    return load.errors;
}

TEST(StationFile, EveryProblemIsReportedWithFileFieldAndReason) {
    const QStringList errors = errorsOf(R"({
      "timing": {"bootSeconds": -1, "coffee": 1},
      "hubs": [
        {"serial": "0x10", "firmware": "2.x", "macs": [
          {"port": 8, "ecid": "0x1", "serialNumber": "A1"},
          {"port": 2, "ecid": "12", "serialNumber": "ECID:2", "state": "asleep"},
          {"port": 2, "ecid": "0x1"}]},
        {"serial": 16, "faults": [{"call": "port.setEnabled", "results": [3, "x"]}]}
      ]})");
    const QStringList expected = {
        "bench.json: timing.coffee: unknown field (known fields: bootSeconds, dfuSeconds, "
        "hubResetSeconds, restoreSeconds, reenumerateSeconds, rebootsForRecovery, "
        "pdContractSeconds, "
        "leaveBusSeconds, stemLatencySeconds)",
        "bench.json: timing.bootSeconds: must be a number from 0 to 3600",
        "bench.json: hubs[0].firmware: must be \"major.minor.patch\" (major and minor up to 15)",
        "bench.json: hubs[0].macs[0].port: must be an integer from 0 to 7",
        "bench.json: hubs[0].macs[1].ecid: must be \"0x\" and hexadecimal digits, or an integer, "
        "from 1 to 0xffffffffffffffff",
        "bench.json: hubs[0].macs[1].serialNumber: must be a serial number, not a boot-ROM "
        "identity (no \"ECID\")",
        "bench.json: hubs[0].macs[1].state: must be one of off, booted, dfu, recovery",
        "bench.json: hubs[0].macs[2].serialNumber: is required",
        "bench.json: hubs[0].macs[2].port: port 2 already has a Mac",
        "bench.json: hubs[1].faults[0].results[1]: must be a result code from 0 to 255",
        "bench.json: hubs[1].serial: another hub has this serial",
        "bench.json: hubs[0].macs[2].ecid: another Mac has this ECID",
    };
    for (const QString& line : expected) EXPECT_TRUE(errors.contains(line)) << line.toStdString();
    EXPECT_EQ(errors.size(), expected.size()) << errors.join(u'\n').toStdString();
}

TEST(StationFile, AMisspeltFaultCallIsRefusedWithTheKnownCalls) {
    const QStringList errors = errorsOf(
        R"({"hubs": [{"serial": 1, "faults": [{"call": "port.setEnabeld", "results": [6]}]}]})");
    ASSERT_EQ(errors.size(), 1);
    EXPECT_TRUE(
        errors[0].startsWith("bench.json: hubs[0].faults[0].call: unknown call \"port.setEnabeld\" "
                             "(known calls: connect, "
                             "port.getEnabled, port.setEnabled,"))
        << errors[0].toStdString();
    EXPECT_TRUE(errors[0].contains("pd.setUEIBytes")) << errors[0].toStdString();
}

TEST(StationFile, BrokenDocumentsAndMissingFiles) {
    EXPECT_EQ(errorsOf("{\"hubs\": [").value(0).left(33), "bench.json: (document): not valid");
    EXPECT_EQ(errorsOf("[]"), QStringList{"bench.json: (document): must be a JSON object"});
    EXPECT_EQ(errorsOf("{}"), QStringList{"bench.json: hubs: must be an array of hubs"});
    EXPECT_EQ(errorsOf(R"({"hubs": [{"serial": 1, "macs": [{"port": 1, "ecid": "0x1",
                "serialNumber": "A1"}], "plugs": [
                {"port": 1, "ecid": "0x2", "serialNumber": "A2", "unplugAfter": 1},
                {"port": 2, "ecid": "0x3", "serialNumber": "A3", "unplugAfter": 1,
                 "unplugAtProgress": 0.5},
                {"port": 2, "ecid": "0x4", "serialNumber": "A4"},
                {"port": 3, "ecid": "0x5", "serialNumber": "A5"},
                {"port": 3, "ecid": "0x1", "serialNumber": "A6", "unplugAtProgress": 2}]}]})"),
              QStringList({"bench.json: hubs[0].plugs[0].port: port 1 already has a Mac from "
                           "the start",
                           "bench.json: hubs[0].plugs[1]: takes only one of unplugAfter, "
                           "unplugAfterRestore and unplugAtProgress",
                           "bench.json: hubs[0].plugs[3]: needs unplugAfter, unplugAfterRestore "
                           "or unplugAtProgress, or the Macs after it are never plugged in",
                           "bench.json: hubs[0].plugs[4].unplugAtProgress: must be a number from "
                           "0 to 1",
                           "bench.json: hubs[0].plugs[4].ecid: another Mac has this ECID"}));
    EXPECT_EQ(errorsOf(R"({"hubs": [], "localDFU": 3})"),
              QStringList{"bench.json: localDFU: must be an object, a non-empty array of Macs "
                          "plugged in one after another, or null"});
    EXPECT_EQ(errorsOf(R"({"hubs": [], "localDFU": [
                 {"ecid": "0x1", "serialNumber": "A1"},
                 {"ecid": "0x2", "serialNumber": "A2", "unplugAfter": 1, "unplugAfterRestore": 1},
                 {"ecid": "0x3", "serialNumber": "A3"}]})"),
              QStringList({"bench.json: localDFU[0]: needs unplugAfter, unplugAfterRestore or "
                           "unplugAtProgress, or the Macs after it are never plugged in",
                           "bench.json: localDFU[1]: takes only one of unplugAfter, "
                           "unplugAfterRestore and unplugAtProgress"}));
    EXPECT_EQ(errorsOf(R"({"hubs": [{"serial": 1, "returnAfter": 3}]})"),
              QStringList{"bench.json: hubs[0].returnAfter: needs vanishAfter"});

    QTemporaryDir folder;
    const sim::StationLoad missing = sim::loadStationFile(folder.filePath("none.json"));
    ASSERT_EQ(missing.errors.size(), 1);
    EXPECT_TRUE(
        missing.errors[0].startsWith(folder.filePath("none.json") + ": (file): cannot be read"));
}

TEST(StationFile, OnlyARegularFileOfAtMost16MiBIsRead) {
    QTemporaryDir folder;
    const QString fifo = folder.filePath("fifo");
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    const QString huge = folder.filePath("huge.json");
    QFile sparse(huge);
    ASSERT_TRUE(sparse.open(QIODevice::WriteOnly) && sparse.resize(50 * 1024 * 1024));
    sparse.close();
    const std::pair<QString, QString> cases[] = {
        {folder.path(), "is a folder, not a station file"},
        {"/dev/zero", "is not a regular file (a device, FIFO or socket cannot be one)"},
        {fifo, "is not a regular file (a device, FIFO or socket cannot be one)"},
        {huge, "is larger than the 16 MiB a station file may have"},
    };
    for (const auto& [path, reason] : cases)
        EXPECT_EQ(sim::loadStationFile(path).errors, QStringList{path + ": (file): " + reason});
}

TEST(StationFile, AFieldGivenTwiceIsRefusedWhereverItIs) {
    const QStringList errors = errorsOf(R"({"hubs": [{"serial": 1, "serial": 2, "macs": [
        {"port": 1, "ecid": 1, "serialNumber": "A", "port": 2}]}],
        "localDFU": null, "localD\u0046U": null})");
    EXPECT_EQ(errors, QStringList({"bench.json: hubs[0].serial: is given more than once",
                                   "bench.json: hubs[0].macs[0].port: is given more than once",
                                   "bench.json: localDFU: is given more than once"}));
    EXPECT_TRUE(errorsOf(R"({"hubs": [{"serial": 1}, {"serial": 2}], "localDFU": null})").isEmpty())
        << "the same field in sibling objects is no duplicate";
}

// What a JSON parser would build for a document is many times its size: one with more nodes
// than any station has is refused before it is parsed.
TEST(StationFile, ADocumentWithMoreNodesThanAStationCanHaveIsNotParsed) {
    QByteArray objects = R"({"hubs": [)";
    for (int i = 0; i < 10001; ++i) objects += "{},";
    objects.chop(1);
    objects += "]}";
    EXPECT_EQ(errorsOf(objects),
              QStringList{"bench.json: (document): has more objects, arrays or values than any "
                          "station (at most 10000 objects and arrays and 500000 values)"});
    // Three containers and a comma after each value: 500000 at the limit, one more over it.
    const auto valuesDocument = [](int zeros) {
        QByteArray json = R"({"hubs": [], "x": [)";
        for (int i = 0; i < zeros; ++i) json += "0,";
        return json + R"(",[{"]})";
    };
    EXPECT_EQ(errorsOf(valuesDocument(499997)).value(0).left(40),
              "bench.json: (document): has more objects");
    EXPECT_EQ(errorsOf(valuesDocument(499996)),
              QStringList{"bench.json: x: unknown field (known fields: timing, cfgutil, idevicerestore, hubs, "
                          "localDFU)"})
        << "brackets and commas in texts are not counted";
}

TEST(StationFile, ValuesAreReadAsWritten) {
    sim::StationLoad load = sim::parseStation(R"({
      "hubs": [{"serial": "0x1c3b4a01", "firmware": "2.11.7", "inputPowerSource": 8,
                "macs": [{"port": 5, "ecid": "0xFFFFFFFFFFFFFFFF", "serialNumber": "Z9",
                          "restoreFailure": {"atProgress": 0.6}}]}],
      "localDFU": null})",
                                              "x.json");
    ASSERT_TRUE(load.station) << load.errors.join(u'\n').toStdString();
    const sim::HubConfig& hub = load.station->hubs[0];
    EXPECT_EQ(hub.serial, 0x1C3B4A01u);
    EXPECT_EQ(sim::versionText(hub.firmware), "2.11.7");
    EXPECT_EQ(hub.inputPowerSource, 8);
    EXPECT_EQ(hub.macs[0].ecid, 0xFFFFFFFFFFFFFFFFull) << "ECIDs above 2^53 survive";
    EXPECT_EQ(hub.macs[0].restoreFailure->atProgress, 0.6);
    EXPECT_EQ(hub.macs[0].restoreFailure->endState, sim::MacState::Recovery);
    EXPECT_FALSE(load.station->localDfu.has_value());
}

using UsbView = DefaultStationTest;

TEST_F(UsbView, LocationsFollowHubPositionAndPort) {
    const QJsonArray devices = call("usb.list").value("devices").toArray();
    std::vector<qint64> locations;
    for (const QJsonValue& device : devices)
        locations.push_back(device.toObject().value("locationID").toInteger());
    // Root hubs and the technician's own devices, then per hub its USB 2 half, the billboard
    // beside it, the control device, its USB 3 half and its Macs; the host's DFU port last.
    EXPECT_EQ(locations,
              (std::vector<qint64>{0x01000000, 0x02000000, 0x03000000, 0x03100000, 0x03110000,
                                   0x03120000, 0x01100000, 0x01100000, 0x01180000, 0x02100000,
                                   0x01110000, 0x01120000, 0x01130000, 0x01140000, 0x01150000,
                                   0x01200000, 0x01200000, 0x01280000, 0x02200000, 0x01210000,
                                   0x01220000, 0x01230000, 0x01240000, 0x01250000, 0x00100000}));
    EXPECT_EQ(usbAt(0x01000000).value("idVendor").toInt(), 0x1D6B) << "a root hub";
    EXPECT_EQ(usbAt(0x02000000).value("idProduct").toInt(), 0x0003) << "the USB 3 root hub";
    EXPECT_EQ(usbAt(0x02100000).value("idVendor").toInt(), 0x24FF) << "the hub's USB 3 half";
    EXPECT_TRUE(std::any_of(devices.begin(), devices.end(), [](const QJsonValue& device) {
        return device["kUSBProductString"] == "Magic Keyboard";
    })) << "a foreign Apple device";
    // Clearing the port nibble of a Mac's location gives its hub's location.
    for (int port = 1; port <= 5; ++port)
        EXPECT_EQ(usbAt(0x01200000 | port << 16).value("idVendor").toInt(), 0x05AC);

    QSet<QString> sessions;
    for (const QJsonValue& device : devices)
        sessions.insert(device.toObject().value("sessionID").toString());
    EXPECT_EQ(sessions.size(), devices.size());
}

}  // namespace
}  // namespace simtest
