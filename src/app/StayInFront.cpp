#include "app/StayInFront.h"

#include "core/SettingRanges.h"

namespace app::stay_in_front {

qint64 seconds(const QVariant& stored) {
    if (!stored.isValid())
        return defaultSeconds;
    const std::optional<qint64> value = core::strictDecimalInteger(stored.toString());
    if (!value)
        return defaultSeconds;
    return *value < 0 ? 0 : *value;
}

bool pullsBack(const QDateTime& requested, const QDateTime& now, qint64 seconds) {
    if (!requested.isValid())
        return false;
    const double elapsed = static_cast<double>(requested.msecsTo(now)) / 1000.0;
    return elapsed < static_cast<double>(seconds);
}

}  // namespace app::stay_in_front
