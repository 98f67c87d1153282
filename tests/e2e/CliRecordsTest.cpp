#include "support/SimulatedStation.h"

#include "records/ChainVerifier.h"
#include "records/RecordStore.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSet>

#include <gtest/gtest.h>

namespace {

// Ten Macs in DFU mode on two hubs; a restore takes six simulated seconds, long enough for the
// batch to be killed with some Macs finished, some restoring and some not started.
QByteArray tenMacs() {
    QByteArray hubs;
    for (int hub = 1; hub <= 2; ++hub) {
        QByteArray macs;
        for (int port = 1; port <= 5; ++port)
            macs += QStringLiteral(R"(%1{"port": %2, "ecid": "0xD%3%4", "serialNumber": "SN%3%4",
                "state": "dfu"})")
                        .arg(port == 1 ? "" : ",")
                        .arg(port)
                        .arg(hub)
                        .arg(port)
                        .toUtf8();
        hubs += QStringLiteral(R"(%1{"serial": "0x1C3B4A0%2", "macs": [%3]})")
                    .arg(hub == 1 ? "" : ",")
                    .arg(hub)
                    .arg(QString::fromUtf8(macs))
                    .toUtf8();
    }
    return R"({"timing": {"bootSeconds": 1, "restoreSeconds": 6, "reenumerateSeconds": 1},
              "hubs": [)" + hubs + "]}";
}

// kill -9 of tarvel-cli in the middle of a batch: every outcome it had reported is in the
// database, and the database passes SQLite's integrity check with its chain whole.
TEST(CliRecords, KillNineMidBatchLosesNoReportedOutcome) {
    testing_support::SimulatedStation station;
    station.setPreference("timeBetweenProcesses", "1");
    ASSERT_FALSE(station.start({"--station", station.writeStation(tenMacs())}, 10).isEmpty());

    QProcess batch;
    ASSERT_TRUE(station.startCli(batch, {"restore", "--all-dfu", "--json"}));
    QSet<QString> reported;
    QByteArray pending;
    while (reported.size() < 3 && batch.state() == QProcess::Running) {
        batch.waitForReadyRead(200);
        pending += batch.readAllStandardOutput();
        qsizetype end;
        while ((end = pending.indexOf('\n')) >= 0) {
            const QJsonObject event = QJsonDocument::fromJson(pending.left(end)).object();
            pending.remove(0, end + 1);
            if (event["event"] == "device" && event["status"] == "Successful")
                reported.insert(event["ecid"].toString().mid(2).toUpper());
        }
    }
    ASSERT_EQ(reported.size(), 3) << "the batch ended before three outcomes came";
    ::kill(static_cast<pid_t>(batch.processId()), SIGKILL);
    ASSERT_TRUE(batch.waitForFinished(5000));
    EXPECT_EQ(batch.exitStatus(), QProcess::CrashExit);

    records::RecordStore store(station.recordsDatabase());
    ASSERT_TRUE(store.isOpen()) << store.lastError().toStdString();
    EXPECT_EQ(store.integrityCheck(), "ok");
    QSet<QString> kept;
    for (const auto& record : store.find({.outcome = records::Outcome::restored}))
        kept.insert(record.ecid);
    EXPECT_TRUE(kept.contains(reported)) << "reported outcomes missing from the database";
    EXPECT_LT(kept.size(), 10) << "the kill came after the batch";
    const auto chain = records::ChainVerifier::verify(store.chainOrder());
    EXPECT_TRUE(chain.intact) << chain.firstFault.toStdString();
}

// Every Mac of a batch that runs to its end has its record, and the batch's records are one
// certificate away.
TEST(CliRecords, ABatchLeavesOneRecordPerMacWithItsPort) {
    testing_support::SimulatedStation station;
    station.setPreference("timeBetweenProcesses", "0");
    station.setPreference("stationName", "bench-12");
    ASSERT_FALSE(station.start({"--station", station.writeStation(tenMacs())}, 50).isEmpty());
    const auto restore = station.cli({"restore", "--all-dfu"});
    ASSERT_EQ(restore.exitCode, 0) << restore.standardError.toStdString();

    const auto listed = station.cli({"records", "--json", "--station", "bench-12"});
    const QJsonArray all = QJsonDocument::fromJson(listed.standardOutput.toUtf8()).array();
    ASSERT_EQ(all.size(), 10);
    QSet<QString> ports;
    for (const QJsonValue value : all) {
        const QJsonObject record = value.toObject();
        EXPECT_EQ(record["outcome"], "restored");
        EXPECT_EQ(record["firmware"], "latest");
        EXPECT_EQ(record["exitStatus"], 0);
        ports.insert(record["location"].toString());
    }
    EXPECT_EQ(ports.size(), 10);
    EXPECT_TRUE(ports.contains("hub 1C3B4A02 port 5"));
    EXPECT_EQ(station.cli({"records", "verify"}).exitCode, 0);
}

}  // namespace
