#include "localport/PrivateSessionBus.h"

#include <QStandardPaths>

#ifdef Q_OS_LINUX
#include <signal.h>
#include <sys/prctl.h>
#endif

namespace {

const QString connectionName = QStringLiteral("tarvel-private-session-bus");
constexpr int startMilliseconds = 5000;

}  // namespace

PrivateSessionBus::~PrivateSessionBus() {
    if (address_.isEmpty())
        return;
    QDBusConnection::disconnectFromBus(connectionName);
    daemon_.terminate();
    daemon_.waitForFinished(startMilliseconds);
}

bool PrivateSessionBus::start(QString* error) {
    const QString program = QStandardPaths::findExecutable(QStringLiteral("dbus-daemon"));
    if (program.isEmpty()) {
        *error = QStringLiteral("dbus-daemon is not installed");
        return false;
    }
#ifdef Q_OS_LINUX
    // The client that owns it may be a process that never destroys it, or one that is killed.
    daemon_.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
#endif
    daemon_.start(program, {QStringLiteral("--session"), QStringLiteral("--nofork"),
                            QStringLiteral("--print-address=1")});
    if (!daemon_.waitForStarted(startMilliseconds)) {
        *error = QStringLiteral("%1 did not start: %2").arg(program, daemon_.errorString());
        return false;
    }
    while (!daemon_.canReadLine() && daemon_.waitForReadyRead(startMilliseconds)) {
    }
    const QString address = QString::fromUtf8(daemon_.readLine()).trimmed();
    if (address.isEmpty() ||
        !QDBusConnection::connectToBus(address, connectionName).isConnected()) {
        *error = QStringLiteral("%1 gave no bus to connect to").arg(program);
        QDBusConnection::disconnectFromBus(connectionName);
        daemon_.kill();
        daemon_.waitForFinished(startMilliseconds);
        return false;
    }
    address_ = address;
    return true;
}

QDBusConnection PrivateSessionBus::connection() const {
    return QDBusConnection(connectionName);
}
