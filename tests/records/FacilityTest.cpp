#include "RecordSamples.h"

#include "support/SimulatedStation.h"

#include "records/ChainVerifier.h"
#include "records/FacilityDatabase.h"
#include "records/RecordOutbox.h"
#include "records/RecordStore.h"
#include "records/RestoreRecorder.h"

#include "configurator/AC2Device.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QUrl>

#include <gtest/gtest.h>

#include <tuple>

namespace {

using records::Outcome;
using testing_support::noon;
using testing_support::sampleRecord;

// The server pg_virtualenv started around this executable.
QString serverURL() {
    QUrl url;
    url.setScheme("postgresql");
    url.setHost(qEnvironmentVariable("PGHOST"));
    url.setPort(qEnvironmentVariable("PGPORT").toInt());
    url.setUserName(qEnvironmentVariable("PGUSER"));
    url.setPassword(qEnvironmentVariable("PGPASSWORD"));
    url.setPath('/' + qEnvironmentVariable("PGDATABASE"));
    return url.toString();
}

bool controlServer(const char* action) {
    QProcess control;
    control.start("pg_ctlcluster",
                  {qEnvironmentVariable("PGVERSION"), "regress", action, "-m", "fast"});
    return control.waitForFinished(30000) && control.exitCode() == 0;
}

class Facility : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_FALSE(qEnvironmentVariableIsEmpty("PGPORT"))
            << "run this under `pg_virtualenv -t` (ctest does)";
        execute("DROP TABLE IF EXISTS tarvel_records");
    }

    void execute(const QString& statement) {
        {
            records::FacilityDatabase open(serverURL());  // makes the table
            ASSERT_TRUE(open.connect()) << open.lastError().toStdString();
            QSqlDatabase db = QSqlDatabase::addDatabase("QPSQL", "direct");
            const QUrl url(serverURL());
            db.setHostName(url.host());
            db.setPort(url.port());
            db.setUserName(url.userName());
            db.setPassword(url.password());
            db.setDatabaseName(url.path().mid(1));
            ASSERT_TRUE(db.open());
            QSqlQuery query(db);
            ASSERT_TRUE(query.exec(statement)) << statement.toStdString();
        }
        QSqlDatabase::removeDatabase("direct");
    }

    QStringList facilityEcids() {
        records::FacilityDatabase facility(serverURL());
        QStringList ecids;
        for (const auto& record : facility.chainOrder()) ecids << record.ecid;
        return ecids;
    }

    QString storePath() const { return dir_.filePath("state/tarvel/records.sqlite"); }

    QTemporaryDir dir_;
};

TEST_F(Facility, ForwardsInOrderAndKeepsEachRecordOnceWhenSentTwice) {
    records::RecordStore store(storePath());
    QStringList written;
    for (int i = 0; i < 25; ++i) {
        const QString ecid = QStringLiteral("E%1").arg(i, 2, 10, QChar('0'));
        store.append(sampleRecord("bench", ecid, Outcome::restored, noon.addSecs(i)), true);
        written << ecid;
    }
    // A bench that died after the facility committed its first records and before its outbox
    // heard of it sends them again.
    records::FacilityDatabase facility(serverURL());
    QList<records::RestoreRecord> early;
    for (const auto& waiting : store.waiting(5)) early << waiting.record;
    ASSERT_TRUE(facility.insert(early)) << facility.lastError().toStdString();

    const records::ForwardResult result =
        records::RecordOutbox::forwardWaiting(store, facility, 10);
    EXPECT_EQ(std::tuple(result.reached, result.sent, result.waiting), std::tuple(true, 25, 0))
        << result.error.toStdString();
    EXPECT_EQ(facilityEcids(), written);
    const auto check = records::ChainVerifier::verify(facility.chainOrder());
    EXPECT_TRUE(check.intact) << check.firstFault.toStdString();
    EXPECT_EQ(records::RecordOutbox::forwardWaiting(store, facility).sent, 0);
}

// The server goes away in the middle of a batch and comes back: outcomes go on being written
// without waiting for it, wait in the outbox, and arrive once each, in order.
TEST_F(Facility, OutboxWaitsWhileTheServerIsDownAndCatchesUpInOrder) {
    records::RestoreRecorder::Collaborators c;
    c.store = std::make_unique<records::RecordStore>(storePath());
    c.outbox = std::make_unique<records::RecordOutbox>(
        storePath(), serverURL(),
        records::RecordOutbox::Options{
            .firstRetryMs = 100, .longestRetryMs = 400, .connectTimeoutSeconds = 2});
    c.station = "bench";
    records::RestoreRecorder recorder(std::move(c));
    QStringList written;
    const auto restoreMac = [&](int i) {
        AC2Device mac;
        mac.setEcid(0xA00 + i);
        recorder.batchSubmitted("batch", {});
        QElapsedTimer took;
        took.start();
        ASSERT_TRUE(recorder.deviceEnded(mac, Outcome::restored, 0, {}));
        EXPECT_LT(took.elapsed(), 250) << "writing an outcome waited for the facility";
        written << QString::number(0xA00 + i, 16).toUpper();
    };

    for (int i = 0; i < 4; ++i) restoreMac(i);
    ASSERT_TRUE(recorder.outbox()->waitUntilIdle(10000));
    EXPECT_EQ(recorder.waitingToSync(), 0);
    EXPECT_EQ(facilityEcids(), written);

    ASSERT_TRUE(controlServer("stop"));
    for (int i = 4; i < 10; ++i) restoreMac(i);
    ASSERT_TRUE(recorder.outbox()->waitUntilIdle(10000));
    EXPECT_EQ(recorder.waitingToSync(), 6);

    ASSERT_TRUE(controlServer("start"));
    QDeadlineTimer deadline(15000);
    while (recorder.waitingToSync() > 0 && !deadline.hasExpired()) {
        recorder.outbox()->wake();
        recorder.outbox()->waitUntilIdle(5000);
    }
    EXPECT_EQ(recorder.waitingToSync(), 0);
    EXPECT_EQ(facilityEcids(), written);
    records::FacilityDatabase facility(serverURL());
    EXPECT_TRUE(records::ChainVerifier::verify(facility.chainOrder()).intact);
}

// A facility table an older Tarvel made, holding a record of its time: connecting adds the
// engine and macOS columns, the old record still verifies and the new ones arrive whole.
TEST_F(Facility, AnOlderTableGainsTheEngineColumnsAndKeepsItsChain) {
    // One go, as execute() makes the table of today first. The record is the first of the v1
    // fixture, hash and all.
    execute(
        "DROP TABLE tarvel_records; "
        "CREATE TABLE tarvel_records (id TEXT PRIMARY KEY, batch_id TEXT NOT NULL, "
        "ecid TEXT NOT NULL, serial_number TEXT NOT NULL, model_identifier TEXT NOT NULL, "
        "device_name TEXT NOT NULL, hub_serial TEXT NOT NULL, hub_port INTEGER NOT NULL, "
        "location TEXT NOT NULL, station TEXT NOT NULL, operator TEXT NOT NULL, "
        "started_at TEXT NOT NULL, ended_at TEXT NOT NULL, duration_ms BIGINT NOT NULL, "
        "outcome TEXT NOT NULL, exit_status INTEGER, last_error TEXT NOT NULL, "
        "firmware TEXT NOT NULL, firmware_sha256 TEXT NOT NULL, tarvel_version TEXT NOT "
        "NULL, station_sequence BIGINT NOT NULL, previous_hash TEXT NOT NULL, hash TEXT NOT "
        "NULL, received_at TIMESTAMPTZ NOT NULL DEFAULT now()); "
        "INSERT INTO tarvel_records VALUES ('6f0c1a52-0b8e-4c55-9d43-1d2f0e7a1b01', "
        "'batch-v1', 'A1', 'SNA1', 'Mac14,3', 'Bench A1', '1C3B4A01', 2, "
        "'hub 1C3B4A01 port 2', 'bench', 'technician', '2026-11-20T11:50:00.000Z', "
        "'2026-11-20T11:55:00.000Z', 300000, 'restored', 0, '', 'latest', '', '0.1.0 (1)', 1, "
        "'', 'b3726163164d379a0665d46f87d8c392b18de3a179a7a47e182d747fad7dd5fe')");

    records::FacilityDatabase facility(serverURL());
    auto next = sampleRecord("bench", "A2", Outcome::failed, noon);
    next.lastError = "ERROR: Unable to send iBEC\nERROR: Unable to restore device";
    next.stationSequence = 2;
    next.previousHash = "b3726163164d379a0665d46f87d8c392b18de3a179a7a47e182d747fad7dd5fe";
    next.hash = next.computeHash();
    ASSERT_TRUE(facility.insert({next})) << facility.lastError().toStdString();

    const auto chain = facility.chainOrder();
    ASSERT_EQ(chain.size(), 2);
    EXPECT_EQ(std::tuple(chain[0].engine, chain[0].firmwareVersion), std::tuple("", ""));
    EXPECT_EQ(chain[1].toJson(), next.toJson());
    const auto check = records::ChainVerifier::verify(chain);
    EXPECT_TRUE(check.intact) << check.firstFault.toStdString();
}

TEST_F(Facility, CliSyncReportsAndVerifyNamesARecordRemovedFromTheFacility) {
    testing_support::SimulatedStation station;
    {
        records::RecordStore store(station.recordsDatabase());
        for (const char* ecid : {"B1", "B2", "B3"})
            store.append(sampleRecord("bench", ecid, Outcome::restored, noon), true);
    }
    station.setPreference("recordsDatabaseURL", serverURL());
    const auto cli = [&](const QStringList& arguments) {
        return station.cliWithoutSimulator(arguments);
    };

    auto sync = cli({"records", "sync"});
    EXPECT_EQ(sync.exitCode, 0) << sync.standardError.toStdString();
    EXPECT_TRUE(sync.standardOutput.contains("Sent 3 records to postgresql://"));
    EXPECT_TRUE(sync.standardOutput.contains("; 0 waiting."));
    EXPECT_FALSE(sync.standardOutput.contains(qEnvironmentVariable("PGPASSWORD")));
    EXPECT_EQ(cli({"records", "verify", "--facility"}).exitCode, 0);

    execute("DELETE FROM tarvel_records WHERE ecid = 'B2'");
    const auto verify = cli({"records", "verify", "--facility"});
    EXPECT_EQ(verify.exitCode, 1);
    EXPECT_TRUE(verify.standardError.contains("record 2 of station \"bench\" was removed"))
        << verify.standardError.toStdString();
    EXPECT_EQ(cli({"records", "--facility", "--ecid", "B3"}).standardOutput.count('\n'), 1);
}

}  // namespace
