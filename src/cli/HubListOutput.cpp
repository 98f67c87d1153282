#include "cli/HubListOutput.h"

#include "hubs/AcronameHub.h"
#include "hubs/AcronamePort.h"

#include <QJsonArray>

#include <cmath>

namespace cli {

namespace {

QString oneDecimal(double value) {
    return QString::asprintf("%.1f", value);
}

QString yesNo(bool value) {
    return value ? QStringLiteral("yes") : QStringLiteral("no");
}

}  // namespace

QString voltageText(const AcronamePort& port) {
    return oneDecimal(port.vBusVoltage());
}

QString currentText(const AcronamePort& port) {
    return oneDecimal(port.vBusCurrent());
}

QString powerText(const AcronamePort& port) {
    return oneDecimal(std::fabs(double(port.vBusVoltage()) * double(port.vBusCurrent())));
}

QJsonObject hubJson(const AcronameHub& hub, bool connected) {
    QJsonArray ports;
    if (connected) {
        for (const auto& port : hub.ports()) {
            ports.append(QJsonObject{
                {"port", static_cast<qint64>(port->portID())},
                {"enabled", port->isEnabled()},
                {"connected", port->isConnected()},
                {"cableOrientation", static_cast<qint64>(port->cableOrientation())},
                {"voltage", voltageText(*port)},
                {"current", currentText(*port)},
                {"power", powerText(*port)},
            });
        }
    }
    return QJsonObject{
        {"serial", hub.modelName()},
        {"serialNumber", static_cast<qint64>(hub.serialNumber())},
        {"model", static_cast<qint64>(hub.model())},
        {"module", static_cast<qint64>(hub.acronameModule())},
        {"router", static_cast<qint64>(hub.router())},
        {"usbID", static_cast<qint64>(hub.usbID())},
        {"connected", connected},
        {"firmwareVersion", hub.firmwareVersion()},
        {"ports", ports},
    };
}

QString hubTable(const AcronameHub& hub, bool connected) {
    if (!connected)
        return QStringLiteral("Hub %1: cannot connect\n").arg(hub.modelName());
    QString text =
        QStringLiteral("Hub %1  firmware %2\n").arg(hub.modelName(), hub.firmwareVersion());
    text += QStringLiteral(
        "  Port  Enabled  Connected  Orientation  Voltage (V)  Current (A)  Power (W)\n");
    for (const auto& port : hub.ports()) {
        text += QStringLiteral("  %1  %2  %3  %4  %5  %6  %7\n")
                    .arg(port->portID(), 4)
                    .arg(yesNo(port->isEnabled()), -7)
                    .arg(yesNo(port->isConnected()), -9)
                    .arg(port->cableOrientation(), 11)
                    .arg(voltageText(*port), 11)
                    .arg(currentText(*port), 11)
                    .arg(powerText(*port), 9);
    }
    return text;
}

}  // namespace cli
