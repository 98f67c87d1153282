// Timings of the restore records: what writing an outcome costs the main loop, a look-up by
// serial number over a million records, and the outbox forwarding 10,000 waiting records to a
// PostgreSQL server (when run under `pg_virtualenv -t`, which names one in PG* variables).
// Arguments name the scenarios to run (writes, lookups, outbox); none runs all.

#include "records/FacilityDatabase.h"
#include "records/RecordOutbox.h"
#include "records/RecordRow.h"
#include "records/RecordStore.h"
#include "records/RestoreRecorder.h"

#include "configurator/AC2Device.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QUrl>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

using records::RestoreRecord;

struct Spread {
    double median, p99, worst;
};

Spread spread(std::vector<double> ms) {
    std::sort(ms.begin(), ms.end());
    return {ms[ms.size() / 2], ms[ms.size() * 99 / 100], ms.back()};
}

RestoreRecord benchRecord(qint64 i, const QString& station, QDateTime ended) {
    RestoreRecord r;
    r.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    r.batchId = QStringLiteral("batch-%1").arg(i / 10);
    r.ecid = QString::number(0x100000000000 + i, 16).toUpper();
    r.serialNumber = QStringLiteral("C02%1").arg(i % 250000, 7, 10, QChar('0'));
    r.modelIdentifier = QStringLiteral("Mac14,3");
    r.deviceName = QStringLiteral("Bench mac");
    r.hubSerial = QStringLiteral("1C3B4A01");
    r.hubPort = static_cast<int>(i % 5) + 1;
    r.location = QStringLiteral("hub 1C3B4A01 port %1").arg(r.hubPort);
    r.station = station;
    r.operatorName = QStringLiteral("technician");
    r.startedAt = ended.addSecs(-600);
    r.endedAt = ended;
    r.durationMs = 600000;
    r.outcome = records::Outcome::restored;
    r.exitStatus = 0;
    r.firmware = QStringLiteral("latest");
    r.tarvelVersion = QStringLiteral("0.1.0 (1)");
    return r;
}

// A database as years of benches leave it, written in one transaction with its chain intact.
void fill(const QString& path, qint64 count, bool queued) {
    { records::RecordStore create(path); }
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "fill");
        db.setDatabaseName(path);
        db.open();
        QSqlQuery query(db);
        query.exec("PRAGMA synchronous = OFF");
        db.transaction();
        query.prepare("INSERT INTO records (" + records::RecordRow::columns() + ") VALUES (" +
                      records::RecordRow::placeholders() + ")");
        QSqlQuery outbox(db);
        outbox.prepare("INSERT INTO outbox (sequence) VALUES (last_insert_rowid())");
        QString previous;
        const QDateTime start(QDate(2024, 1, 1), QTime(8, 0), Qt::UTC);
        for (qint64 i = 0; i < count; ++i) {
            RestoreRecord r = benchRecord(i, QStringLiteral("bench"), start.addSecs(i * 60));
            r.stationSequence = i + 1;
            r.previousHash = previous;
            r.hash = r.computeHash();
            previous = r.hash;
            records::RecordRow::bind(query, r);
            query.exec();
            if (queued)
                outbox.exec();
        }
        db.commit();
    }
    QSqlDatabase::removeDatabase("fill");
}

void outcomeWrites(const QString& folder) {
    records::RestoreRecorder::Collaborators c;
    c.store = std::make_unique<records::RecordStore>(folder + "/writes.sqlite");
    c.station = "bench";
    records::RestoreRecorder recorder(std::move(c));
    std::vector<double> ms;
    for (int i = 0; i < 500; ++i) {
        AC2Device mac;
        mac.setEcid(0xA000 + i);
        mac.setSerialNumber(QStringLiteral("C02W%1").arg(i));
        QElapsedTimer timer;
        timer.start();
        recorder.deviceEnded(mac, records::Outcome::restored, 0, {});
        ms.push_back(timer.nsecsElapsed() / 1e6);
    }
    const Spread s = spread(ms);
    std::printf("writing an outcome (500): median %.2f ms, p99 %.2f ms, "
                "worst %.2f ms\n",
                s.median, s.p99, s.worst);
}

void lookUps(const QString& folder) {
    const QString path = folder + "/million.sqlite";
    QElapsedTimer timer;
    timer.start();
    fill(path, 1000000, false);
    std::printf("filled one million records in %.1f s\n", timer.elapsed() / 1000.0);
    records::RecordStore store(path);
    std::vector<double> ms;
    qsizetype found = 0;
    for (int i = 0; i < 50; ++i) {
        timer.start();
        found += store.find({.serialNumber = QStringLiteral("C02%1").arg(i * 4999 % 250000, 7, 10,
                                                                        QChar('0'))})
                     .size();
        ms.push_back(timer.nsecsElapsed() / 1e6);
    }
    Spread s = spread(ms);
    std::printf("find by serial over 1,000,000 records (50 look-ups, %lld records each on "
                "average): median %.2f ms, worst %.2f ms\n",
                static_cast<long long>(found / 50), s.median, s.worst);

    const QString cli = QCoreApplication::applicationDirPath() + "/tarvel-cli";
    if (!QFile::exists(cli))
        return;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    QDir().mkpath(folder + "/state/tarvel");
    QFile::rename(path, folder + "/state/tarvel/records.sqlite");
    environment.insert("XDG_STATE_HOME", folder + "/state");
    ms.clear();
    for (int i = 0; i < 10; ++i) {
        QProcess process;
        process.setProcessEnvironment(environment);
        timer.start();
        process.start(cli, {"records", "--serial", QStringLiteral("C02%1").arg(i * 7919 % 250000, 7, 10, QChar('0'))});
        process.waitForFinished(30000);
        ms.push_back(timer.nsecsElapsed() / 1e6);
    }
    s = spread(ms);
    std::printf("tarvel-cli records --serial over 1,000,000 records, whole process (10 runs): "
                "median %.1f ms, worst %.1f ms\n",
                s.median, s.worst);
}

void forwarding(const QString& folder) {
    if (qEnvironmentVariableIsEmpty("PGPORT")) {
        std::printf("outbox forwarding: skipped (run under pg_virtualenv -t for a server)\n");
        return;
    }
    QUrl url;
    url.setScheme("postgresql");
    url.setHost(qEnvironmentVariable("PGHOST"));
    url.setPort(qEnvironmentVariable("PGPORT").toInt());
    url.setUserName(qEnvironmentVariable("PGUSER"));
    url.setPassword(qEnvironmentVariable("PGPASSWORD"));
    url.setPath('/' + qEnvironmentVariable("PGDATABASE"));
    const QString path = folder + "/outbox.sqlite";
    fill(path, 10000, true);
    records::RecordStore store(path);
    records::FacilityDatabase facility(url.toString());
    QElapsedTimer timer;
    timer.start();
    const records::ForwardResult result = records::RecordOutbox::forwardWaiting(store, facility);
    std::printf("outbox forwarding 10,000 waiting records: %lld sent, %lld waiting, in %.2f s%s\n",
                static_cast<long long>(result.sent), static_cast<long long>(result.waiting),
                timer.elapsed() / 1000.0, qPrintable(result.error));
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    // On the disk the bench database lives on, not a memory file system: fsync is the cost.
    QTemporaryDir folder(QDir::currentPath() + "/records-bench-XXXXXX");
    // Name scenarios (writes, lookups, outbox) to run only those.
    const QStringList chosen = application.arguments().mid(1);
    const auto wanted = [&](const char* name) { return chosen.isEmpty() || chosen.contains(name); };
    if (wanted("writes"))
        outcomeWrites(folder.path());
    if (wanted("lookups"))
        lookUps(folder.path());
    if (wanted("outbox"))
        forwarding(folder.path());
    return 0;
}
