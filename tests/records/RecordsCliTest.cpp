#include "RecordSamples.h"

#include "support/SimulatedStation.h"

#include "records/RecordStore.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

using records::Outcome;
using testing_support::noon;
using testing_support::ProcessResult;
using testing_support::sampleRecord;

// tarvel-cli against a bench database of three records, in a state folder of its own.
class RecordsCli : public ::testing::Test {
  protected:
    void SetUp() override {
        records::RecordStore store(station_.recordsDatabase());
        ASSERT_TRUE(store.isOpen());
        restored_ =
            *store.append(sampleRecord("bench", "1A2B", Outcome::restored, noon, "C02XK1"), false);
        failed_ = *store.append(
            sampleRecord("bench", "3C4D", Outcome::failed, noon.addSecs(60), "C02XK2"), false);
        store.append(sampleRecord("bench", "5E6F", Outcome::restored, noon.addSecs(120), "C02X,3"),
                     false);
    }

    ProcessResult cli(const QStringList& arguments) const {
        return station_.cliWithoutSimulator(arguments);
    }
    QString file(const QString& name) const { return dir_.filePath(name); }
    // A poppler tool's standard output, once it has ended well.
    static QString poppler(const QString& tool, const QStringList& arguments) {
        QProcess run;
        run.start(tool, arguments);
        EXPECT_TRUE(run.waitForFinished(20000) && run.exitCode() == 0) << tool.toStdString();
        return QString::fromUtf8(run.readAllStandardOutput());
    }

    testing_support::SimulatedStation station_;
    QTemporaryDir dir_;
    records::RestoreRecord restored_;
    records::RestoreRecord failed_;
};

TEST_F(RecordsCli, ListsPlainJsonAndCsvWithFilters) {
    const ProcessResult plain = cli({"records"});
    ASSERT_EQ(plain.exitCode, 0) << plain.standardError.toStdString();
    const QStringList lines = plain.standardOutput.split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 3);  // piped: no header, newest first
    EXPECT_TRUE(lines[0].contains("\trestored\t5E6F\tC02X,3\t"));
    EXPECT_TRUE(lines[2].endsWith(restored_.id));

    const ProcessResult json = cli({"records", "--outcome", "failed", "--json"});
    const QJsonArray array = QJsonDocument::fromJson(json.standardOutput.toUtf8()).array();
    ASSERT_EQ(array.size(), 1);
    EXPECT_EQ(array[0].toObject(), failed_.toJson());

    const ProcessResult csv = cli({"records", "--csv", "--since", "2026-11-20T12:01:00Z"});
    ASSERT_EQ(csv.exitCode, 0);
    const QStringList rows = csv.standardOutput.split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(rows.size(), 3);
    EXPECT_TRUE(rows[0].startsWith("id,batchId,ecid,serialNumber,"));
    EXPECT_TRUE(rows[0].endsWith(",hash,engine,firmwareVersion")) << rows[0].toStdString();
    EXPECT_TRUE(rows[2].endsWith(",\"" + failed_.engine + "\"," + failed_.firmwareVersion))
        << rows[2].toStdString();
    EXPECT_TRUE(rows[1].contains(",5E6F,\"C02X,3\",")) << rows[1].toStdString();
    EXPECT_TRUE(rows[2].contains(",3C4D,C02XK2,"));

    EXPECT_EQ(cli({"records", "--serial", "C02XK1", "--ecid", "0x1a2b"}).standardOutput.count('\n'),
              1);
    EXPECT_EQ(cli({"records", "--serial", "C02XK1", "--ecid", "3C4D"}).standardOutput, "");
    EXPECT_EQ(cli({"records", "--outcome", "wiped"}).exitCode, 2);
    EXPECT_EQ(cli({"records", "--since", "yesterday"}).exitCode, 2);
}

TEST_F(RecordsCli, CertificateIsAReadablePdfWithTheRecordsFactsAndRefusesAFailure) {
    const ProcessResult made = cli({"records", "certificate", "--serial", "C02XK1", "--out",
                                    file("c.pdf"), "--json", file("c.json")});
    ASSERT_EQ(made.exitCode, 0) << made.standardError.toStdString();

    poppler("pdftoppm", {"-png", "-r", "50", "-singlefile", file("c.pdf"), file("page")});
    const QImage page(file("page.png"));
    ASSERT_FALSE(page.isNull());
    EXPECT_LT(page.width(), page.height());  // A4 upright
    // Ink on the page: a blank render would be one colour.
    EXPECT_GT(page.copy(0, 0, page.width(), page.height() / 3)
                  .convertToFormat(QImage::Format_Mono)
                  .colorCount(),
              1);

    const QString words = poppler("pdftotext", {"-layout", file("c.pdf"), "-"});
    for (const QString& fact :
         {QStringLiteral("C02XK1"), QStringLiteral("1A2B"), QStringLiteral("DFU mode"),
          QStringLiteral("all user data"), QStringLiteral("technician"), restored_.id,
          restored_.hash.left(32), QStringLiteral("/srv/ipsw/UniversalMac_14.6.ipsw")})
        EXPECT_TRUE(words.contains(fact)) << fact.toStdString() << "\n" << words.toStdString();

    // The engine and the macOS each on a line of their own, right under the firmware's hash.
    const QStringList shown = words.split('\n');
    const auto lineOf = [&](const QString& start) {
        for (qsizetype i = 0; i < shown.size(); ++i)
            if (shown[i].trimmed().startsWith(start))
                return i;
        return qsizetype(-1);
    };
    const qsizetype macOS = lineOf("macOS");
    EXPECT_EQ(lineOf(restored_.firmwareSha256) + 1, macOS) << words.toStdString();
    EXPECT_EQ(shown.value(macOS).simplified(), "macOS 15.3.1 (24D70)");
    EXPECT_EQ(shown.value(macOS + 1).simplified(), "Restored with " + restored_.engine);

    QFile json(file("c.json"));
    ASSERT_TRUE(json.open(QIODevice::ReadOnly));
    const QJsonObject certificate =
        QJsonDocument::fromJson(json.readAll()).object()["certificates"].toArray()[0].toObject();
    EXPECT_EQ(certificate["hash"].toString(), restored_.hash);
    EXPECT_TRUE(certificate["userDataErased"].toBool());

    const ProcessResult refused =
        cli({"records", "certificate", "3C4D", "--out", file("refused.pdf")});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_TRUE(refused.standardError.contains("ended failed, not restored"));
    EXPECT_FALSE(QFile::exists(file("refused.pdf")));
}

// A bench database from before records named their engine, opened by this tarvel-cli.
TEST(RecordsCliUpgrade, VerifiesAnOlderDatabaseMigratedUp) {
    testing_support::SimulatedStation station;
    QDir().mkpath(QFileInfo(station.recordsDatabase()).path());
    ASSERT_TRUE(
        QFile::copy(TARVEL_RECORDS_FIXTURES "/records-v2.sqlite", station.recordsDatabase()));
    QFile::setPermissions(station.recordsDatabase(), QFile::ReadOwner | QFile::WriteOwner);
    const ProcessResult verify = station.cliWithoutSimulator({"records", "verify"});
    EXPECT_EQ(verify.exitCode, 0) << verify.standardError.toStdString();
    EXPECT_TRUE(verify.standardOutput.contains("is intact: 3 records of 1 station"))
        << verify.standardOutput.toStdString();
}

TEST_F(RecordsCli, BatchCertificateHasAPagePerRestoredMacAndASummary) {
    const ProcessResult made =
        cli({"records", "certificate", "--batch", "batch-1", "--out", file("b.pdf")});
    ASSERT_EQ(made.exitCode, 0) << made.standardError.toStdString();
    EXPECT_TRUE(made.standardError.contains("no certificate for C02XK2: its restore ended failed"));
    EXPECT_TRUE(poppler("pdfinfo", {file("b.pdf")}).contains(QRegularExpression("Pages:\\s+3\\n")));
}

}  // namespace
