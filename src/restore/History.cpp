#include "restore/History.h"

#include "core/Csv.h"

#include <QLocale>

namespace restore {

QString ecidHex(std::uint64_t ecid) { return QString::number(ecid, 16).toUpper(); }

History History::make(std::uint64_t ecid, const QString& serialNumber, const QDateTime& date,
                      const QString& message) {
    History record;
    record.device = ecidHex(ecid);
    record.serialNumber = serialNumber;
    record.date = date;
    record.message = message;
    return record;
}

QString historyCSV(const QList<History>& history) {
    QString csv = QStringLiteral("Device,SerialNumber,Date,Message\n");
    for (const History& record : history)
        csv += core::csvLine({record.device, record.serialNumber,
                              record.date.toString(Qt::ISODate), record.message});
    return csv;
}

QString History::dateFormatter(const QDateTime& date) {
    return QLocale::system().toString(date, QLocale::ShortFormat);
}

}  // namespace restore
