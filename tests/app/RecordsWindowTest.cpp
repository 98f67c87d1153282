#include "views/RecordsWindow.h"

#include "records/RecordSamples.h"
#include "records/RecordStore.h"

#include <QComboBox>
#include <QDateEdit>
#include <QFile>
#include <QItemSelectionModel>
#include <QLineEdit>
#include <QTableView>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

using testing_support::sampleRecord;

class RecordsWindowTest : public ::testing::Test {
  protected:
    void SetUp() override {
        records::RecordStore store(path());
        const QDateTime now = QDateTime::currentDateTimeUtc();
        const auto add = [&](const char* ecid, records::Outcome outcome, const QDateTime& ended,
                             const char* serial) {
            store.append(sampleRecord("bench", ecid, outcome, ended, serial), false);
        };
        add("1A2B", records::Outcome::restored, now.addSecs(-120), "C02XK1");
        add("3C4D", records::Outcome::failed, now.addSecs(-60), "C02XK2");
        add("5E6F", records::Outcome::restored, now.addDays(-90), "C02XK3");
    }
    QString path() const { return dir_.filePath("records.sqlite"); }

    QTemporaryDir dir_;
};

TEST_F(RecordsWindowTest, FiltersBySearchOutcomeAndDateRange) {
    views::RecordsWindow window(path());
    EXPECT_EQ(window.model().rowCount(), 2);  // the last 30 days
    EXPECT_EQ(window.status(), "2 records");

    window.search()->setText("0x1a2b");
    window.refresh();
    ASSERT_EQ(window.model().rowCount(), 1);
    EXPECT_EQ(window.model().shown()[0].serialNumber, "C02XK1");
    window.search()->setText("C02XK2");
    window.refresh();
    ASSERT_EQ(window.model().rowCount(), 1);
    EXPECT_EQ(window.model().shown()[0].ecid, "3C4D");

    window.search()->clear();
    window.outcome()->setCurrentIndex(window.outcome()->findData("restored"));
    EXPECT_EQ(window.model().rowCount(), 1);
    window.from()->setDate(QDate::currentDate().addDays(-100));
    EXPECT_EQ(window.model().rowCount(), 2);
}

TEST_F(RecordsWindowTest, ExportsTheShownRecordsAndCertifiesOnlyRestoredOnes) {
    views::RecordsWindow window(path());
    ASSERT_TRUE(window.exportCsv(dir_.filePath("out.csv")));
    QFile csv(dir_.filePath("out.csv"));
    ASSERT_TRUE(csv.open(QIODevice::ReadOnly));
    const QStringList lines = QString::fromUtf8(csv.readAll()).split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 3);
    EXPECT_TRUE(lines[1].contains(",3C4D,C02XK2,"));  // newest first

    const auto select = [&](int row) {
        window.table()->selectionModel()->select(
            window.model().index(row, 0),
            QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    };
    select(0);
    EXPECT_FALSE(window.writeCertificate(dir_.filePath("failed.pdf")));
    EXPECT_TRUE(window.status().contains("ended failed, not restored"));
    EXPECT_FALSE(QFile::exists(dir_.filePath("failed.pdf")));
    select(1);
    EXPECT_TRUE(window.writeCertificate(dir_.filePath("restored.pdf")));
    QFile pdf(dir_.filePath("restored.pdf"));
    ASSERT_TRUE(pdf.open(QIODevice::ReadOnly));
    EXPECT_TRUE(pdf.read(5) == "%PDF-");
}

}  // namespace
