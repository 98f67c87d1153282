#include "core/HubPortName.h"

namespace core {

QString hubName(std::uint32_t serialNumber) {
    return QStringLiteral("%1").arg(serialNumber, 2, 16, QLatin1Char('0')).toUpper();
}

QString hubPortName(std::uint32_t serialNumber, int port) {
    return hubPortName(hubName(serialNumber), port);
}

QString hubPortName(const QString& hubName, int port) {
    return QStringLiteral("%1:%2").arg(hubName).arg(port);
}

}  // namespace core
