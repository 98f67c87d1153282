#include "SimulatorLocalPort.h"

#include "localport/HelperProtocol.h"

#include "core/Log.h"

SimulatorLocalPort::SimulatorLocalPort(const QString& socketPath) : simulator_(socketPath) {}

std::int64_t SimulatorLocalPort::enterDFUMode() {
    return send(QStringLiteral("local.dfu"));
}

std::int64_t SimulatorLocalPort::reboot() {
    return send(QStringLiteral("local.reboot"));
}

std::int64_t SimulatorLocalPort::send(const QString& call) {
    const auto reply = simulator_.request(call);
    if (!reply) {
        ZMRLogLevel1(QStringLiteral("%1: the simulator at %2 did not answer: %3")
                         .arg(call, simulator_.socketPath(), simulator_.lastError()));
        return localport::status::simulatorUnreachable;
    }
    const std::int64_t result = reply->value(QLatin1String("result")).toInteger();
    if (result != 0)
        ZMRLogLevel1(QStringLiteral("%1: the simulator answered %2: %3")
                         .arg(call)
                         .arg(result)
                         .arg(reply->value(QLatin1String("message")).toString()));
    return result;
}
