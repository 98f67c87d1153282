#pragma once

#include <QDateTime>
#include <QList>
#include <QString>
#include <QUuid>

#include <cstdint>

namespace restore {

// One restore outcome, kept in memory for as long as the program runs.
struct History {
    QString device;  // the ECID in upper-case hexadecimal, no prefix, no padding
    QString serialNumber;
    QDateTime date;
    QString message;  // "Restored Successfully", "Restore Cancelled" or the error text
    QUuid identifier = QUuid::createUuid();

    static History make(std::uint64_t ecid, const QString& serialNumber, const QDateTime& date,
                        const QString& message);
    // How every history list shows a record's date: the locale's short date and time.
    static QString dateFormatter(const QDateTime& date);
};

// The history for a spreadsheet: "Device,SerialNumber,Date,Message", dates in ISO 8601.
QString historyCSV(const QList<History>& history);

// An ECID as history records and event scripts write it: upper-case hexadecimal, no prefix.
QString ecidHex(std::uint64_t ecid);

}  // namespace restore
