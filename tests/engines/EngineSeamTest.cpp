#include "support/SimulatedStation.h"
#include "support/StationBuilder.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

namespace engine_seam_test {

using testing_support::ProcessResult;
using testing_support::SimulatedStation;
using testing_support::StationBuilder;

// Three Macs in DFU mode on one hub: ECIDs 0x11, 0x12 and 0x13.
StationBuilder threeMacsInDfu() {
    return StationBuilder(1, 3).macState("dfu").timing("restoreSeconds", 30);
}

std::string describe(const ProcessResult& run) {
    return QStringLiteral("exit %1\n%2\n%3")
        .arg(run.exitCode)
        .arg(run.standardOutput, run.standardError)
        .toStdString();
}

std::string nameOfEngine(const testing::TestParamInfo<const char*>& engine) {
    return engine.param;
}

// The same restores through either engine's stand-in, against one real simulator: whatever runs
// the restore, the batch and the single restore end and report alike.
class EngineSeam : public testing::TestWithParam<const char*> {
  protected:
    void start(const StationBuilder& spec) {
        ASSERT_FALSE(station.start({"--station", station.writeStation(spec.json())}).isEmpty());
        const ProcessResult chosen =
            station.cli({"defaults", "write", "restoreEngine", GetParam()});
        ASSERT_EQ(chosen.exitCode, 0) << describe(chosen);
    }

    // Each Mac's record in the history the batch wrote.
    QMap<QString, QJsonObject> history() const {
        QFile file(historyPath());
        file.open(QIODevice::ReadOnly);
        QMap<QString, QJsonObject> records;
        for (const QJsonValue record : QJsonDocument::fromJson(file.readAll()).array())
            records.insert(record["device"].toString(), record.toObject());
        return records;
    }

    QString historyPath() const { return QDir(station.logFolder()).filePath("../history.json"); }

    ProcessResult restoreAll() const {
        return station.cli({"restore", "--all-dfu", "--json", "--history-json", historyPath()});
    }

    SimulatedStation station;
};

TEST_P(EngineSeam, RestoresEveryMacOfABatch) {
    ASSERT_NO_FATAL_FAILURE(start(threeMacsInDfu()));
    const ProcessResult run = restoreAll();
    EXPECT_EQ(run.exitCode, 0) << describe(run);
    const auto records = history();
    EXPECT_EQ(records.keys(), QStringList({"11", "12", "13"}));
    for (const QJsonObject& record : records) EXPECT_EQ(record["message"], "Restored Successfully");
}

TEST_P(EngineSeam, RestoresOneMacByItsEcid) {
    ASSERT_NO_FATAL_FAILURE(
        start(threeMacsInDfu().macFields(1, 2, R"("restoreFailure": {"atProgress": 0.05,
        "status": 21, "message": "libusbrestore error:21"})")));
    const ProcessResult restored = station.cli({"restore-device", "0x11"});
    EXPECT_EQ(restored.exitCode, 0) << describe(restored);
    EXPECT_TRUE(restored.standardOutput.contains("Restore of 0x11 completed."))
        << describe(restored);
    const ProcessResult failed = station.cli({"restore-device", "0x12"});
    EXPECT_EQ(failed.exitCode, 1) << describe(failed);
}

INSTANTIATE_TEST_SUITE_P(Engines, EngineSeam, testing::Values("cfgutil", "idevicerestore"),
                         nameOfEngine);

// idevicerestore loses the Mac's message: the stand-in prints it bare on standard output (as the
// 2025 builds print their errors), and its output reader takes a bare line for an error only when
// it begins like one of the tool's known errors, so the record has no "error" at all. The case
// runs against cfgutil until that is mended; then it joins the suite above.
class EngineSeamFailure : public EngineSeam {};

TEST_P(EngineSeamFailure, OneMacsFailureReachesTheHistoryAndTheExitStatus) {
    ASSERT_NO_FATAL_FAILURE(
        start(threeMacsInDfu().macFields(1, 2, R"("restoreFailure": {"atProgress": 0.5,
        "status": 21, "message": "The restore failed.", "endState": "recovery"})")));
    const ProcessResult run = restoreAll();
    EXPECT_EQ(run.exitCode, 1) << describe(run);
    const auto records = history();
    EXPECT_EQ(records.value("11")["message"], "Restored Successfully");
    EXPECT_EQ(records.value("13")["message"], "Restored Successfully");
    EXPECT_NE(records.value("12")["message"], "Restored Successfully");
    const QString error = records.value("12")["error"].toString();
    EXPECT_TRUE(error.contains("The restore failed.")) << describe(run) << error.toStdString();
}

INSTANTIATE_TEST_SUITE_P(Engines, EngineSeamFailure, testing::Values("cfgutil", "idevicerestore"),
                         nameOfEngine);

// What each listed Mac is, as far as both engines can know it (names and serial numbers come
// from different places).
QStringList listedMacs(const ProcessResult& listing) {
    QStringList macs;
    for (const QJsonValue mac : QJsonDocument::fromJson(listing.standardOutput.toUtf8()).array())
        macs << QStringList{mac["ecid"].toString(), mac["locationID"].toString(),
                            mac["inDFU"].toBool() ? "dfu" : "recovery",
                            mac["deviceType"].toString(), mac.toObject().keys().join(',')}
                    .join(' ');
    return macs;
}

TEST(EngineListings, BothEnginesListTheSameMacsWithTheSameKeys) {
    SimulatedStation station;
    const StationBuilder spec = StationBuilder(1, 3)
                                    .macState(1, 1, "dfu")
                                    .macState(1, 2, "recovery")
                                    .macState(1, 3, "dfu")
                                    .macFields(1, 3, R"("deviceType": "Mac14,2")");
    ASSERT_FALSE(station.start({"--station", station.writeStation(spec.json())}).isEmpty());
    QMap<QString, QStringList> listings;
    for (const char* engine : {"cfgutil", "idevicerestore"}) {
        SCOPED_TRACE(engine);
        ASSERT_EQ(station.cli({"defaults", "write", "restoreEngine", engine}).exitCode, 0);
        const ProcessResult listing = station.cli({"devices", "--json"});
        EXPECT_EQ(listing.exitCode, 0) << describe(listing);
        listings.insert(engine, listedMacs(listing));
    }
    const QString keys = "deviceType,ecid,inDFU,locationID,name,productID,serialNumber,udid";
    EXPECT_EQ(listings.value("cfgutil"), QStringList({"0x11 0x1110000 dfu Macmini9,1 " + keys,
                                                      "0x12 0x1120000 recovery Macmini9,1 " + keys,
                                                      "0x13 0x1130000 dfu Mac14,2 " + keys}));
    EXPECT_EQ(listings.value("idevicerestore"), listings.value("cfgutil"));
}

}  // namespace engine_seam_test
