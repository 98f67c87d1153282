#include "support/SimulatedStation.h"
#include "support/StationBuilder.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

namespace engine_records_test {

using testing_support::ProcessResult;
using testing_support::SimulatedStation;
using testing_support::StationBuilder;

std::string describe(const ProcessResult& run) {
    return QStringLiteral("exit %1\n%2\n%3")
        .arg(run.exitCode)
        .arg(run.standardOutput, run.standardError)
        .toStdString();
}

// A batch through the idevicerestore stand-in, one Mac of it refused a signature: every record
// names the engine with its version, and the macOS the tool read from the firmware, the failed
// one too (it had read it before it failed).
TEST(EngineRecords, ABatchThroughIdevicerestoreNamesTheEngineAndTheMacOS) {
    SimulatedStation station;
    const StationBuilder spec =
        StationBuilder(1, 2).macState("dfu").macFields(1, 2, R"("engineFault": "signingRefused")");
    ASSERT_FALSE(station.start({"--station", station.writeStation(spec.json())}).isEmpty());
    const ProcessResult chosen =
        station.cli({"defaults", "write", "restoreEngine", "idevicerestore"});
    ASSERT_EQ(chosen.exitCode, 0) << describe(chosen);
    const ProcessResult restore = station.cli({"restore", "--all-dfu", "--json"});
    EXPECT_NE(restore.exitCode, 0) << describe(restore);  // one Mac failed

    const ProcessResult listed = station.cliWithoutSimulator({"records", "--json"});
    ASSERT_EQ(listed.exitCode, 0) << describe(listed);
    QMap<QString, QJsonObject> byEcid;
    for (const QJsonValue record : QJsonDocument::fromJson(listed.standardOutput.toUtf8()).array())
        byEcid.insert(record["ecid"].toString(), record.toObject());
    ASSERT_EQ(byEcid.keys(), QStringList({"11", "12"})) << describe(listed);

    const QJsonObject restored = byEcid["11"];
    const QJsonObject failed = byEcid["12"];
    EXPECT_EQ(restored["outcome"], "restored");
    EXPECT_TRUE(restored["engine"].toString().startsWith("idevicerestore "));
    EXPECT_TRUE(restored["engine"].toString().contains("(libirecovery "))
        << restored["engine"].toString().toStdString();
    EXPECT_EQ(restored["firmwareVersion"], "15.3.1 (24D70)");
    EXPECT_EQ(failed["outcome"], "failed");
    EXPECT_EQ(failed["engine"], restored["engine"]);
    EXPECT_EQ(failed["firmwareVersion"], "15.3.1 (24D70)");
    EXPECT_EQ(failed["lastError"], "Unable to get SHSH blobs for this device");

    const ProcessResult verify = station.cliWithoutSimulator({"records", "verify"});
    EXPECT_EQ(verify.exitCode, 0) << describe(verify);
}

}  // namespace engine_records_test
