#include "core/SimulatorAddress.h"

#include "core/Clock.h"
#include "core/SimulatorConnection.h"

#include <QCoreApplication>
#include <QLocalSocket>

#include <unistd.h>

namespace core {

QString defaultSimulatorSocketPath() {
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty()) return runtime + QStringLiteral("/tarvel-sim.sock");
    return QStringLiteral("/tmp/tarvel-sim-%1.sock").arg(::getuid());
}

std::optional<QString> simulatorSocketFromEnvironment() {
    const QString named = qEnvironmentVariable("TARVEL_SIM");
    if (named.isEmpty()) return std::nullopt;
    return named;
}

void selectSimulator(const QString& socket) {
    qputenv("TARVEL_SIM", socket.toLocal8Bit());
    const QString beside = QCoreApplication::applicationDirPath();
    if (qEnvironmentVariableIsEmpty("TARVEL_CFGUTIL"))
        qputenv("TARVEL_CFGUTIL", (beside + QStringLiteral("/tarvel-sim-cfgutil")).toLocal8Bit());
    if (qEnvironmentVariableIsEmpty("TARVEL_IDEVICERESTORE"))
        qputenv("TARVEL_IDEVICERESTORE",
                (beside + QStringLiteral("/tarvel-sim-idevicerestore")).toLocal8Bit());
    // Our pauses run on the station's time: a fast simulator gets shorter pauses, never a client
    // that waits less than the hardware needs.
    SimulatorConnection connection(socket);
    if (const auto info = connection.request(QStringLiteral("station.info")))
        Clock::system().setSpeed(info->value(QLatin1String("speed")).toDouble(1.0));
}

std::optional<QString> simulatorProblem(const QString& socket) {
    QLocalSocket probe;
    probe.connectToServer(socket);
    if (probe.waitForConnected(2000)) return std::nullopt;
    return QStringLiteral("no station simulator is running at %1 (start tarvel-sim first)").arg(socket);
}

}  // namespace core
