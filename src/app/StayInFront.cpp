#include "app/StayInFront.h"

namespace app::stay_in_front {

qint64 seconds(const QVariant& stored) {
    if (!stored.isValid())
        return defaultSeconds;
    bool isNumber = false;
    const qint64 value = stored.toString().toLongLong(&isNumber);
    if (!isNumber)
        return defaultSeconds;
    return value < 0 ? 0 : value;
}

bool pullsBack(const QDateTime& requested, const QDateTime& now, qint64 seconds) {
    if (!requested.isValid())
        return false;
    const double elapsed = static_cast<double>(requested.msecsTo(now)) / 1000.0;
    return elapsed < static_cast<double>(seconds);
}

}  // namespace app::stay_in_front
