#pragma once

#include "records/RestoreRecord.h"

#include <QJsonObject>
#include <QList>
#include <QString>

#include <optional>

namespace records {

// The paper a refurbisher hands over with a Mac: what was done to it, when, where, by whom,
// with which firmware, and the record id and hash that `records verify` vouches for. One page
// per restored Mac; a batch adds a summary page listing every Mac of the batch.
class Certificate {
  public:
    // `certified`: restored records only. `batch`: every record of the batch for the summary
    // page, or empty for single Macs.
    Certificate(QList<RestoreRecord> certified, QList<RestoreRecord> batch = {});

    // Why no certificate can be made for these records ("" when one can): a certificate says
    // the Mac was restored, so any other outcome is refused.
    static QString refusal(const QList<RestoreRecord>& records);

    // Written with Qt's own PDF writer; needs a QGuiApplication (fonts).
    bool writePdf(const QString& path, QString* error) const;
    // The same facts for machines.
    QJsonObject json() const;

    // The HTML of one Mac's page and of the summary page.
    static QString macPage(const RestoreRecord& record);
    static QString summaryPage(const QList<RestoreRecord>& batch);

    // What the certificate states was done to the Mac, naming the engine that restored it.
    static QString statement(const RestoreRecord& record);

  private:
    QList<RestoreRecord> certified_;
    QList<RestoreRecord> batch_;
};

}  // namespace records
