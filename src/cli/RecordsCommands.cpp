#include "cli/RecordsCommands.h"

#include "cli/ConfiguratorCommands.h"
#include "cli/RecordsOutput.h"

#include "core/Settings.h"
#include "core/SettingsKeys.h"
#include "records/Certificate.h"
#include "records/ChainVerifier.h"
#include "records/FacilityDatabase.h"
#include "records/RecordOutbox.h"
#include "records/RecordStore.h"

#include <QJsonDocument>
#include <QSaveFile>

#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

#include <unistd.h>

namespace cli {
namespace {

using records::RestoreRecord;

struct ListOptions {
    std::string since, until, serial, ecid, outcome, station, batch;
    bool json = false;
    bool csv = false;
    bool facility = false;
};

struct CertificateOptions {
    std::string ecid, serial, batch, out, json;
};

QString facilityURL() {
    return core::Settings::shared().stringForKey(core::keys::recordsDatabaseURL);
}

// The records come from the bench's database, or the facility's with --facility.
class Source {
  public:
    explicit Source(bool facility) {
        if (!facility) {
            store_ = std::make_unique<records::RecordStore>(records::RecordStore::defaultPath());
            if (!store_->isOpen())
                error_ = store_->lastError();
            return;
        }
        if (!records::FacilityDatabase::isFacilityURL(facilityURL())) {
            error_ = QStringLiteral("recordsDatabaseURL names no postgresql:// database");
            return;
        }
        facility_ = std::make_unique<records::FacilityDatabase>(facilityURL());
        if (!facility_->connect())
            error_ = facility_->lastError();
    }
    QString error() const { return error_; }
    QString name() const {
        return store_ ? store_->path() : records::FacilityDatabase::displayAddress(facilityURL());
    }
    QList<RestoreRecord> find(const records::RecordFilter& filter, int limit = -1) {
        return store_ ? store_->find(filter, limit) : facility_->find(filter, limit);
    }
    QList<RestoreRecord> chainOrder() {
        return store_ ? store_->chainOrder() : facility_->chainOrder();
    }
    QString lastError() const { return store_ ? store_->lastError() : facility_->lastError(); }

  private:
    std::unique_ptr<records::RecordStore> store_;
    std::unique_ptr<records::FacilityDatabase> facility_;
    QString error_;
};

std::optional<int> parseEcidInto(const std::string& text, QString* ecid) {
    if (text.empty())
        return std::nullopt;
    const std::optional<std::uint64_t> value = parseEcid(QString::fromStdString(text));
    if (!value)
        return fail(exitUsage, QStringLiteral("\"%1\" is not an ECID")
                                   .arg(QString::fromStdString(text)));
    *ecid = QString::number(*value, 16).toUpper();
    return std::nullopt;
}

std::optional<int> buildFilter(const ListOptions& o, records::RecordFilter* filter) {
    for (const auto& [text, endOfDay, target] :
         {std::tuple{&o.since, false, &filter->since}, std::tuple{&o.until, true, &filter->until}}) {
        if (text->empty())
            continue;
        *target = records::RecordFilter::parseDate(QString::fromStdString(*text), endOfDay);
        if (!target->isValid())
            return fail(exitUsage, QStringLiteral("\"%1\" is not a date (2026-11-23 or an ISO "
                                                  "8601 time)")
                                       .arg(QString::fromStdString(*text)));
    }
    if (const auto refused = parseEcidInto(o.ecid, &filter->ecid))
        return refused;
    if (!o.outcome.empty()) {
        filter->outcome = records::outcomeFromName(QString::fromStdString(o.outcome));
        if (!filter->outcome)
            return fail(exitUsage, QStringLiteral("outcome is one of restored, failed, "
                                                  "cancelled, abandoned"));
    }
    filter->serialNumber = QString::fromStdString(o.serial);
    filter->station = QString::fromStdString(o.station);
    filter->batchId = QString::fromStdString(o.batch);
    return std::nullopt;
}

int list(const ListOptions& o) {
    if (o.json && o.csv)
        return fail(exitUsage, QStringLiteral("--json and --csv exclude each other"));
    records::RecordFilter filter;
    if (const auto refused = buildFilter(o, &filter))
        return *refused;
    Source source(o.facility);
    if (!source.error().isEmpty())
        return fail(exitFailure, source.error());
    const QList<RestoreRecord> found = source.find(filter);
    if (!source.lastError().isEmpty())
        return fail(exitFailure, source.lastError());
    const RecordsFormat format = o.json                          ? RecordsFormat::json
                                 : o.csv                         ? RecordsFormat::csv
                                 : ::isatty(STDOUT_FILENO) == 1 ? RecordsFormat::table
                                                                 : RecordsFormat::plain;
    std::fputs(recordsText(found, format).toUtf8().constData(), stdout);
    return exitSuccess;
}

int verify(bool facility) {
    Source source(facility);
    if (!source.error().isEmpty())
        return fail(exitFailure, source.error());
    const QList<RestoreRecord> chain = source.chainOrder();
    if (!source.lastError().isEmpty())
        return fail(exitFailure, source.lastError());
    const records::ChainVerifier::Result result = records::ChainVerifier::verify(chain);
    if (!result.intact)
        return fail(exitFailure, QStringLiteral("the chain of %1 is broken: %2")
                                     .arg(source.name(), result.firstFault));
    std::printf("The chain of %s is intact: %lld records of %d station%s.\n",
                qPrintable(source.name()), static_cast<long long>(result.records), result.stations,
                result.stations == 1 ? "" : "s");
    return exitSuccess;
}

bool writeJson(const QString& path, const QJsonObject& object) {
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.write(QJsonDocument(object).toJson(QJsonDocument::Indented));
    return file.commit();
}

int certificate(const CertificateOptions& o, bool facility) {
    const int chosen = !o.ecid.empty() + !o.serial.empty() + !o.batch.empty();
    if (chosen != 1)
        return fail(exitUsage, QStringLiteral("name one Mac by ECID or --serial, or --batch ID"));
    records::RecordFilter filter;
    if (const auto refused = parseEcidInto(o.ecid, &filter.ecid))
        return *refused;
    filter.serialNumber = QString::fromStdString(o.serial);
    filter.batchId = QString::fromStdString(o.batch);
    Source source(facility);
    if (!source.error().isEmpty())
        return fail(exitFailure, source.error());

    QList<RestoreRecord> certified;
    QList<RestoreRecord> batch;
    if (!filter.batchId.isEmpty()) {
        batch = source.find(filter);
        std::reverse(batch.begin(), batch.end());
        for (const RestoreRecord& record : batch)
            if (record.outcome == records::Outcome::restored)
                certified.append(record);
            else
                std::fprintf(stderr, "tarvel-cli: no certificate for %s: its restore ended %s\n",
                             qPrintable(record.serialNumber.isEmpty() ? record.ecid
                                                                      : record.serialNumber),
                             qPrintable(records::outcomeName(record.outcome)));
        if (batch.isEmpty())
            return fail(exitFailure, QStringLiteral("no record of batch %1").arg(filter.batchId));
        if (certified.isEmpty())
            return fail(exitFailure, QStringLiteral("no Mac of batch %1 was restored")
                                         .arg(filter.batchId));
    } else {
        // The Mac's latest restore is what a certificate speaks for.
        certified = source.find(filter, 1);
        if (const QString refusal = records::Certificate::refusal(certified); !refusal.isEmpty())
            return fail(exitFailure, QStringLiteral("no certificate: %1").arg(refusal));
    }
    const records::Certificate paper(certified, batch);
    const QString out = QString::fromStdString(o.out);
    QString error;
    if (!paper.writePdf(out, &error))
        return fail(exitFailure, error);
    if (!o.json.empty() && !writeJson(QString::fromStdString(o.json), paper.json()))
        return fail(exitFailure, QStringLiteral("cannot write %1").arg(QString::fromStdString(o.json)));
    std::printf("Wrote a certificate for %lld Mac%s to %s.\n",
                static_cast<long long>(certified.size()), certified.size() == 1 ? "" : "s",
                qPrintable(out));
    return exitSuccess;
}

int sync() {
    const QString url = facilityURL();
    if (!records::FacilityDatabase::isFacilityURL(url))
        return fail(exitFailure, QStringLiteral("recordsDatabaseURL names no postgresql:// "
                                                "database; records stay on this bench"));
    records::RecordStore store(records::RecordStore::defaultPath());
    if (!store.isOpen())
        return fail(exitFailure, store.lastError());
    records::FacilityDatabase facility(url);
    const records::ForwardResult result = records::RecordOutbox::forwardWaiting(store, facility);
    std::printf("Sent %lld record%s to %s; %lld waiting.\n", static_cast<long long>(result.sent),
                result.sent == 1 ? "" : "s", qPrintable(records::FacilityDatabase::displayAddress(url)),
                static_cast<long long>(result.waiting));
    if (!result.error.isEmpty())
        return fail(exitFailure, result.error);
    return exitSuccess;
}

}  // namespace

bool wantsCertificate(int argc, char** argv) {
    bool records = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "records") == 0)
            records = true;
        else if (records && std::strcmp(argv[i], "certificate") == 0)
            return true;
    }
    return false;
}

void addRecordsCommands(CLI::App& app, CliContext& context) {
    auto o = std::make_shared<ListOptions>();
    CLI::App* records = app.add_subcommand(
        "records", "The restore records of this bench (or the facility's with --facility)");
    records->add_option("--since", o->since, "records that ended on or after this date");
    records->add_option("--until", o->until, "records that ended on or before this date");
    records->add_option("--serial", o->serial, "the Mac with this serial number");
    records->add_option("--ecid", o->ecid, "the Mac with this ECID");
    records->add_option("--outcome", o->outcome, "restored, failed, cancelled or abandoned");
    records->add_option("--station", o->station, "records of this station");
    records->add_option("--batch", o->batch, "records of this batch");
    records->add_flag("--json", o->json, "print JSON");
    records->add_flag("--csv", o->csv, "print comma-separated values with a header");
    records->add_flag("--facility", o->facility,
                      "read the facility database that recordsDatabaseURL names");
    records->require_subcommand(0, 1);
    records->callback([&context, records, o] {
        if (records->get_subcommands().empty())
            context.action = [o] { return list(*o); };
    });

    records->add_subcommand("verify", "Recompute the hash chain and name the first record that "
                                      "was changed or removed")
        ->callback([&context, o] { context.action = [o] { return verify(o->facility); }; });

    auto c = std::make_shared<CertificateOptions>();
    CLI::App* certificate = records->add_subcommand(
        "certificate", "Write a restore certificate (PDF) for a Mac or a batch");
    certificate->add_option("ECID", c->ecid, "the Mac's ECID");
    certificate->add_option("--serial", c->serial, "the Mac with this serial number");
    certificate->add_option("--batch", c->batch, "every Mac of this batch, with a summary page");
    certificate->add_option("--out", c->out, "the PDF file to write")->required();
    certificate->add_option("--json", c->json, "also write the certificate's facts as JSON");
    certificate->callback([&context, c, o] {
        context.action = [c, o] { return cli::certificate(*c, o->facility); };
    });

    records->add_subcommand("sync", "Send the records waiting for the facility database now")
        ->callback([&context] { context.action = [] { return sync(); }; });
}

}  // namespace cli
