#include "records/Certificate.h"

#include <QAbstractTextDocumentLayout>
#include <QDateTime>
#include <QFileInfo>
#include <QJsonArray>
#include <QPageLayout>
#include <QPageSize>
#include <QPainter>
#include <QPdfWriter>
#include <QTextDocument>

namespace records {
namespace {

QString escaped(const QString& text) {
    return text.toHtmlEscaped();
}

QString orUnknown(const QString& text) {
    return text.isEmpty() ? QStringLiteral("not known") : escaped(text);
}

QString shownTime(const QDateTime& time) {
    return escaped(time.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss t")) + " (" +
                   recordTime(time) + ")");
}

QString row(const QString& label, const QString& html) {
    return QStringLiteral(
               "<tr><td style=\"color:#555555; padding-right:16px\">%1</td>"
               "<td>%2</td></tr>")
        .arg(escaped(label), html);
}

QString section(const QString& title, const QString& rows) {
    return QStringLiteral(
               "<h3 style=\"margin-top:14px; margin-bottom:4px\">%1</h3>"
               "<table cellspacing=\"0\" cellpadding=\"2\">%2</table>")
        .arg(escaped(title), rows);
}

QString mono(const QString& text) {
    return QStringLiteral("<span style=\"font-family:'DejaVu Sans Mono',monospace\">%1</span>")
        .arg(escaped(text));
}

QString duration(qint64 ms) {
    const qint64 seconds = ms / 1000;
    return QStringLiteral("%1 min %2 s").arg(seconds / 60).arg(seconds % 60);
}

QString firmwareHtml(const RestoreRecord& r) {
    if (r.firmware == QLatin1String("latest") || r.firmware.isEmpty())
        return QStringLiteral(
            "the latest firmware Apple publishes for this model, as Apple "
            "Configurator chose it");
    return escaped(r.firmware) + "<br/>SHA-256 " + mono(r.firmwareSha256);
}

}  // namespace

QString Certificate::statement(const RestoreRecord& record) {
    const QString engine = record.engine.startsWith(QLatin1String("idevicerestore"))
                               ? QStringLiteral("idevicerestore")
                               : QStringLiteral("Apple Configurator");
    return QStringLiteral(
               "This Mac was restored to factory firmware in DFU mode with %1. The restore "
               "erased all user data and settings on its internal storage and installed a new "
               "copy of macOS and its firmware.")
        .arg(engine);
}

Certificate::Certificate(QList<RestoreRecord> certified, QList<RestoreRecord> batch)
    : certified_(std::move(certified)), batch_(std::move(batch)) {}

QString Certificate::refusal(const QList<RestoreRecord>& records) {
    if (records.isEmpty())
        return QStringLiteral("no record matches");
    for (const RestoreRecord& record : records)
        if (record.outcome != Outcome::restored)
            return QStringLiteral(
                       "the restore of %1 (record %2) ended %3, not restored; a "
                       "certificate says a Mac was restored")
                .arg(record.serialNumber.isEmpty() ? "ECID " + record.ecid : record.serialNumber,
                     record.id, outcomeName(record.outcome));
    return {};
}

QString Certificate::macPage(const RestoreRecord& r) {
    QString html =
        QStringLiteral(
            "<h1 style=\"margin-bottom:2px\">Certificate of Restore and Data Erasure</h1>"
            "<p style=\"color:#555555; margin-top:0\">Issued by Tarvel %1 on %2</p>"
            "<p style=\"font-size:12pt\">%3</p>")
            .arg(escaped(r.tarvelVersion), shownTime(QDateTime::currentDateTimeUtc()),
                 escaped(statement(r)));
    html += section("The Mac", row("Serial number", orUnknown(r.serialNumber)) +
                                   row("ECID", mono(r.ecid)) +
                                   row("Model identifier", orUnknown(r.modelIdentifier)) +
                                   row("Name", orUnknown(r.deviceName)));
    html += section(
        "The restore",
        row("Outcome",
            "<b>Restored</b>" + (r.exitStatus
                                     ? QStringLiteral(" (tool exit status %1)").arg(*r.exitStatus)
                                     : QString())) +
            row("Mode", "DFU mode, full restore (all user data erased)") +
            row("Firmware", firmwareHtml(r)) + row("macOS", orUnknown(r.firmwareVersion)) +
            row("Restored with", orUnknown(r.engine)) + row("Started", shownTime(r.startedAt)) +
            row("Ended", shownTime(r.endedAt)) + row("Duration", duration(r.durationMs)));
    html += section("Where and by whom",
                    row("Station", escaped(r.station)) + row("Port", escaped(r.location)) +
                        row("Operator", escaped(r.operatorName)) + row("Batch", mono(r.batchId)));
    html += section("Record", row("Record id", mono(r.id)) +
                                  row("Record hash (SHA-256)", mono(r.hash)) +
                                  row("Station record number", QString::number(r.stationSequence)));
    html += QStringLiteral(
        "<p style=\"color:#555555; margin-top:16px\">The record hash covers every fact above "
        "and the station's previous record. <i>tarvel-cli records verify</i> on the station, or "
        "against the facility database, recomputes the chain and names any record that was "
        "changed or removed.</p>");
    return html;
}

QString Certificate::summaryPage(const QList<RestoreRecord>& batch) {
    int restored = 0;
    QString rows;
    for (const RestoreRecord& r : batch) {
        restored += r.outcome == Outcome::restored;
        rows += QStringLiteral("<tr><td>%1</td><td>%2</td><td>%3</td><td>%4</td><td>%5</td></tr>")
                    .arg(orUnknown(r.serialNumber), mono(r.ecid), escaped(r.location),
                         escaped(outcomeName(r.outcome)), mono(r.id.left(8)));
    }
    const RestoreRecord& first = batch.first();
    return QStringLiteral(
               "<h1>Batch Summary</h1>"
               "<p>Batch %1 on station %2, operator %3: %4 of %5 Macs restored. Only "
               "restored Macs have a certificate page.</p>"
               "<table cellspacing=\"0\" cellpadding=\"3\" border=\"1\" "
               "style=\"border-collapse:collapse\"><tr><th>Serial number</th>"
               "<th>ECID</th><th>Port</th><th>Outcome</th><th>Record</th></tr>%6</table>")
        .arg(mono(first.batchId), escaped(first.station), escaped(first.operatorName))
        .arg(restored)
        .arg(batch.size())
        .arg(rows);
}

bool Certificate::writePdf(const QString& path, QString* error) const {
    QPdfWriter writer(path);
    writer.setTitle(QStringLiteral("Tarvel restore certificate"));
    writer.setCreator(QStringLiteral("Tarvel"));
    writer.setPageSize(QPageSize(QPageSize::A4));
    writer.setPageMargins(QMarginsF(18, 18, 18, 18), QPageLayout::Millimeter);
    writer.setResolution(300);
    QPainter painter;
    if (!painter.begin(&writer)) {
        *error = QStringLiteral("cannot write %1").arg(path);
        return false;
    }
    QStringList pages;
    for (const RestoreRecord& record : certified_) pages << macPage(record);
    if (!batch_.isEmpty())
        pages << summaryPage(batch_);
    for (qsizetype i = 0; i < pages.size(); ++i) {
        if (i > 0)
            writer.newPage();
        QTextDocument document;
        document.documentLayout()->setPaintDevice(&writer);
        document.setDefaultFont(QFont(QStringLiteral("DejaVu Sans"), 10));
        document.setHtml(pages[i]);
        document.setTextWidth(writer.width());
        document.drawContents(&painter);
    }
    if (!painter.end()) {
        *error = QStringLiteral("cannot finish %1").arg(path);
        return false;
    }
    return QFileInfo(path).size() > 0;
}

QJsonObject Certificate::json() const {
    QJsonArray macs;
    for (const RestoreRecord& record : certified_) {
        QJsonObject mac = record.toJson();
        mac.insert("statement", statement(record));
        mac.insert("mode", "DFU");
        mac.insert("userDataErased", true);
        macs.append(mac);
    }
    QJsonObject object{{"certificates", macs},
                       {"issuedAt", recordTime(QDateTime::currentDateTimeUtc())}};
    if (!batch_.isEmpty()) {
        QJsonArray all;
        for (const RestoreRecord& record : batch_)
            all.append(QJsonObject{{"id", record.id},
                                   {"ecid", record.ecid},
                                   {"serialNumber", record.serialNumber},
                                   {"outcome", outcomeName(record.outcome)},
                                   {"hash", record.hash}});
        object.insert("batch", QJsonObject{{"id", batch_.first().batchId}, {"records", all}});
    }
    return object;
}

}  // namespace records
