#include "RecordSamples.h"

#include "records/ChainVerifier.h"
#include "records/RecordSchema.h"
#include "records/RecordStore.h"

#include <QFile>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <thread>
#include <tuple>

namespace {

using records::Outcome;
using records::RecordStore;
using testing_support::noon;
using testing_support::sampleRecord;

class RecordStoreTest : public ::testing::Test {
  protected:
    QString path() const { return dir_.filePath("state/records.sqlite"); }

    // Runs SQL on the file behind the store's back, as someone with the file would.
    void tamper(const QString& statement) const {
        {
            QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "tamper");
            db.setDatabaseName(path());
            ASSERT_TRUE(db.open());
            QSqlQuery query(db);
            ASSERT_TRUE(query.exec(statement)) << statement.toStdString();
        }
        QSqlDatabase::removeDatabase("tamper");
    }

    // Station "bench"'s chain of these ECIDs, closed again.
    void writeChain(const QStringList& ecids, Outcome outcome) const {
        RecordStore store(path());
        for (const QString& ecid : ecids)
            store.append(sampleRecord("bench", ecid, outcome, noon), false);
    }

    QTemporaryDir dir_;
};

TEST_F(RecordStoreTest, ChainsEachStationSeparatelyAndVerifies) {
    RecordStore store(path());
    ASSERT_TRUE(store.isOpen()) << store.lastError().toStdString();
    const auto first = store.append(sampleRecord("bench-a", "A1", Outcome::restored, noon), false);
    const auto other = store.append(sampleRecord("bench-b", "B1", Outcome::failed, noon), false);
    const auto second =
        store.append(sampleRecord("bench-a", "A2", Outcome::cancelled, noon), false);
    ASSERT_TRUE(first && other && second);
    EXPECT_EQ(std::tuple(first->stationSequence, other->stationSequence, second->stationSequence),
              std::tuple(1, 1, 2));
    EXPECT_EQ(std::tuple(first->previousHash, second->previousHash), std::tuple("", first->hash));
    EXPECT_EQ(first->hash, first->computeHash());

    const auto chain = store.chainOrder();
    ASSERT_EQ(chain.size(), 3);
    const auto result = records::ChainVerifier::verify(chain);
    EXPECT_TRUE(result.intact) << result.firstFault.toStdString();
    EXPECT_EQ(result.stations, 2);
    // What was written reads back field for field.
    const auto read = store.find({.ecid = "B1"});
    ASSERT_EQ(read.size(), 1);
    EXPECT_EQ(read[0].toJson(), other->toJson());
    EXPECT_EQ(store.integrityCheck(), "ok");
}

TEST_F(RecordStoreTest, VerifyNamesAnEditedRecord) {
    writeChain({"A1", "A2", "A3"}, Outcome::failed);
    tamper("UPDATE records SET outcome = 'restored' WHERE ecid = 'A2'");
    RecordStore store(path());
    const auto result = records::ChainVerifier::verify(store.chainOrder());
    EXPECT_FALSE(result.intact);
    EXPECT_EQ(result.recordId, store.find({.ecid = "A2"}).first().id);
    EXPECT_TRUE(result.firstFault.contains("was changed")) << result.firstFault.toStdString();
}

TEST_F(RecordStoreTest, VerifyNamesARemovedRecordEvenWhenTheNextWasRehashed) {
    writeChain({"A1", "A2", "A3", "A4"}, Outcome::restored);
    tamper("DELETE FROM records WHERE ecid = 'A2'");
    RecordStore store(path());
    auto result = records::ChainVerifier::verify(store.chainOrder());
    EXPECT_FALSE(result.intact);
    EXPECT_TRUE(result.firstFault.startsWith("record 2 of station \"bench\" was removed"))
        << result.firstFault.toStdString();

    // Renumbering the rest and fixing its link still leaves a record whose hash no longer fits.
    tamper("UPDATE records SET station_sequence = station_sequence - 1 WHERE station_sequence > 2");
    result = records::ChainVerifier::verify(store.chainOrder());
    EXPECT_FALSE(result.intact);
    EXPECT_EQ(result.recordId, store.find({.ecid = "A3"}).first().id);
}

TEST_F(RecordStoreTest, FiltersNarrowTogetherAndListNewestFirst) {
    RecordStore store(path());
    store.append(sampleRecord("a", "E1", Outcome::restored, noon.addDays(-2), "C02X1"), false);
    store.append(sampleRecord("a", "E2", Outcome::failed, noon.addDays(-1), "C02X2"), false);
    store.append(sampleRecord("b", "E1", Outcome::restored, noon, "C02X1"), false);
    store.append(sampleRecord("b", "E3", Outcome::abandoned, noon.addDays(1), "C02X3"), false);

    const auto ecids = [&](const records::RecordFilter& filter) {
        QStringList found;
        for (const auto& record : store.find(filter)) found << record.station + record.ecid;
        return found.join(' ').toStdString();
    };
    EXPECT_EQ(ecids({}), "bE3 bE1 aE2 aE1");
    EXPECT_EQ(ecids({.serialNumber = "C02X1"}), "bE1 aE1");
    EXPECT_EQ(ecids({.serialNumber = "C02X1", .station = "a"}), "aE1");
    EXPECT_EQ(ecids({.outcome = Outcome::failed}), "aE2");
    EXPECT_EQ(ecids({.since = noon.addDays(-1), .until = noon}), "bE1 aE2");
    // A day given as a date covers the whole day, whatever the time zone.
    const QDateTime day = records::RecordFilter::parseDate(
        noon.addDays(1).toLocalTime().date().toString(Qt::ISODate), false);
    EXPECT_EQ(ecids({.since = day}), "bE3");
    EXPECT_FALSE(records::RecordFilter::parseDate("23/11/2026", false).isValid());
}

// A copy of a database the first schema wrote, with two chained records of station "bench".
TEST_F(RecordStoreTest, MigratesAVersionOneDatabaseKeepingItsRecords) {
    QDir().mkpath(dir_.filePath("state"));
    ASSERT_TRUE(QFile::copy(TARVEL_RECORDS_FIXTURES "/records-v1.sqlite", path()));
    QFile::setPermissions(path(), QFile::ReadOwner | QFile::WriteOwner);

    RecordStore store(path());
    ASSERT_TRUE(store.isOpen()) << store.lastError().toStdString();
    const auto old = store.find({.station = "bench"});
    ASSERT_EQ(old.size(), 2);
    EXPECT_EQ(std::tuple(old[0].ecid, old[0].lastError, old[0].exitStatus),
              std::tuple("A2", "libusbrestore error:21", 21));
    // The old records still chain; the new one follows them, and the outbox that version 2
    // added takes records.
    const auto next = store.append(sampleRecord("bench", "A3", Outcome::restored, noon), true);
    ASSERT_TRUE(next);
    EXPECT_EQ(next->stationSequence, 3);
    EXPECT_EQ(next->previousHash, old[0].hash);
    EXPECT_EQ(store.waitingCount(), 1);
    const auto chain = records::ChainVerifier::verify(store.chainOrder());
    EXPECT_TRUE(chain.intact) << chain.firstFault.toStdString();
    EXPECT_EQ(store.find({.serialNumber = "SNA1"}).size(), 1);
}

// A copy of a database the second schema wrote: three chained records of station "bench" from
// before records named their engine, the last of them waiting for the facility.
TEST_F(RecordStoreTest, OldRecordsMigratedUpStillVerifyAndNewOnesCoverTheirEngine) {
    QDir().mkpath(dir_.filePath("state"));
    ASSERT_TRUE(QFile::copy(TARVEL_RECORDS_FIXTURES "/records-v2.sqlite", path()));
    QFile::setPermissions(path(), QFile::ReadOwner | QFile::WriteOwner);
    {
        RecordStore store(path());
        ASSERT_TRUE(store.isOpen()) << store.lastError().toStdString();
        const auto old = store.chainOrder();
        ASSERT_EQ(old.size(), 3);
        EXPECT_EQ(std::tuple(old[1].engine, old[1].firmwareVersion, old[1].lastError),
                  std::tuple("", "", "libusbrestore error:21"));
        EXPECT_FALSE(old[0].toJson().value("engine").isUndefined());  // listed, though empty
        EXPECT_EQ(store.waitingCount(), 1);
        auto failed = sampleRecord("bench", "B4", Outcome::failed, noon);
        failed.lastError = "Unable to send iBEC\nERROR: Unable to restore device";
        const auto written = store.append(failed, false);
        ASSERT_TRUE(written);
        ASSERT_TRUE(store.append(sampleRecord("bench", "B5", Outcome::restored, noon), true));
        const auto chain = records::ChainVerifier::verify(store.chainOrder());
        EXPECT_TRUE(chain.intact) << chain.firstFault.toStdString();
        EXPECT_EQ(chain.records, 5);
        const auto read = store.find({.ecid = "B4"});
        ASSERT_EQ(read.size(), 1);
        EXPECT_EQ(read[0].toJson(), written->toJson());
        EXPECT_EQ(std::tuple(read[0].engine, read[0].firmwareVersion, read[0].lastError),
                  std::tuple(failed.engine, "15.3.1 (24D70)", failed.lastError));
    }
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "version");
        db.setDatabaseName(path());
        ASSERT_TRUE(db.open());
        EXPECT_EQ(records::RecordSchema::version(db), records::RecordSchema::currentVersion);
    }
    QSqlDatabase::removeDatabase("version");

    // Each new field of a new record is in its hash, blanked as much as changed; an old record
    // given one is caught as well.
    const auto faultAfter = [&](const QString& statement) {
        tamper(statement);
        RecordStore store(path());
        return records::ChainVerifier::verify(store.chainOrder());
    };
    const QString newId = RecordStore(path()).find({.ecid = "B5"}).first().id;
    auto result =
        faultAfter("UPDATE records SET firmware_version = '14.6 (23G80)' WHERE ecid = 'B5'");
    EXPECT_FALSE(result.intact);
    EXPECT_EQ(result.recordId, newId);
    tamper("UPDATE records SET firmware_version = '15.3.1 (24D70)' WHERE ecid = 'B5'");
    EXPECT_TRUE(faultAfter("UPDATE records SET engine = engine WHERE ecid = 'B5'").intact);
    result = faultAfter("UPDATE records SET engine = '' WHERE ecid = 'B5'");
    EXPECT_EQ(std::tuple(result.intact, result.recordId), std::tuple(false, newId));
    tamper(QStringLiteral("UPDATE records SET engine = '%1' WHERE ecid = 'B5'")
               .arg(sampleRecord("", "", Outcome::restored, noon).engine));
    result = faultAfter("UPDATE records SET engine = 'cfgutil' WHERE ecid = 'B1'");
    EXPECT_FALSE(result.intact);
    EXPECT_TRUE(result.firstFault.contains("number 1")) << result.firstFault.toStdString();
}

TEST_F(RecordStoreTest, RefusesADatabaseFromANewerSchema) {
    writeChain({}, Outcome::restored);  // a database of this schema, empty
    tamper(
        QStringLiteral("PRAGMA user_version = %1").arg(records::RecordSchema::currentVersion + 1));
    RecordStore store(path());
    EXPECT_FALSE(store.isOpen());
    EXPECT_TRUE(store.lastError().contains("newer Tarvel")) << store.lastError().toStdString();
    EXPECT_FALSE(store.append(sampleRecord("bench", "A1", Outcome::restored, noon), false));
}

// Two programs writing the same station's chain at once (each connection is its own writer, as
// the desktop application's and tarvel-cli's are): no record is lost, none shares a number, and
// the chain is one line.
TEST_F(RecordStoreTest, TwoWritersAtOnceKeepOneChain) {
    { RecordStore created(path()); }
    constexpr int each = 60;
    const auto write = [&](const QString& prefix) {
        RecordStore store(path());
        for (int i = 0; i < each; ++i)
            ASSERT_TRUE(store.append(
                sampleRecord("bench", prefix + QString::number(i), Outcome::restored, noon), true))
                << store.lastError().toStdString();
    };
    std::thread desktop(write, QStringLiteral("D"));
    std::thread cli(write, QStringLiteral("C"));
    desktop.join();
    cli.join();
    RecordStore store(path());
    const auto chain = store.chainOrder();
    EXPECT_EQ(chain.size(), 2 * each);
    const auto result = records::ChainVerifier::verify(chain);
    EXPECT_TRUE(result.intact) << result.firstFault.toStdString();
    EXPECT_EQ(store.waitingCount(), 2 * each);
    EXPECT_EQ(store.integrityCheck(), "ok");
}

TEST_F(RecordStoreTest, OutboxHandsRecordsOutInWrittenOrder) {
    RecordStore store(path());
    store.append(sampleRecord("a", "E1", Outcome::restored, noon), true);
    store.append(sampleRecord("a", "E2", Outcome::restored, noon), false);
    store.append(sampleRecord("b", "E3", Outcome::restored, noon), true);
    store.append(sampleRecord("a", "E4", Outcome::restored, noon), true);
    const auto ecids = [](const auto& waiting) {
        QStringList found;
        for (const auto& entry : waiting) found << entry.record.ecid;
        return found;
    };
    const auto waiting = store.waiting(2);
    ASSERT_EQ(ecids(waiting), QStringList({"E1", "E3"}));
    ASSERT_TRUE(store.removeFromOutbox({waiting[0].sequence, waiting[1].sequence}));
    EXPECT_EQ(ecids(store.waiting(10)), QStringList{"E4"});
    EXPECT_EQ(store.waitingCount(), 1);
}

}  // namespace
