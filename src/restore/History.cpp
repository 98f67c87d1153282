#include "restore/History.h"

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

QString History::dateFormatter(const QDateTime& date) {
    return QLocale::system().toString(date, QLocale::ShortFormat);
}

}  // namespace restore
