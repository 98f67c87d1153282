#include "support/PrivateBus.h"

#include "support/Scripts.h"

#include <QDBusConnectionInterface>

#include <signal.h>
#include <sys/prctl.h>

namespace testing_support {

void endWithThisProcess(QProcess& process) {
    process.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
}

PrivateBus::PrivateBus() {
    endWithThisProcess(daemon_);
    daemon_.start(QStringLiteral(TARVEL_TEST_DBUS_DAEMON),
                  {QStringLiteral("--session"), QStringLiteral("--nofork"),
                   QStringLiteral("--print-address=1")});
    if (!daemon_.waitForStarted(5000))
        return;
    while (!daemon_.canReadLine() && daemon_.waitForReadyRead(5000)) {
    }
    address_ = QString::fromUtf8(daemon_.readLine()).trimmed();
}

PrivateBus::~PrivateBus() {
    for (const QString& name : connections_) QDBusConnection::disconnectFromBus(name);
    daemon_.terminate();
    daemon_.waitForFinished(5000);
}

QDBusConnection PrivateBus::connect(const QString& name) const {
    connections_ << name;
    return QDBusConnection::connectToBus(address_, name);
}

QProcessEnvironment PrivateBus::environment() const {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"), address_);
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), address_);
    environment.remove(QStringLiteral("LD_PRELOAD"));
    return environment;
}

bool PrivateBus::waitForOwner(const QString& name, bool owned, int milliseconds) const {
    const QDBusConnection probe = QDBusConnection::connectToBus(address_, QStringLiteral("probe"));
    const bool reached =
        runLoopUntil([&] { return probe.interface()->isServiceRegistered(name).value() == owned; },
                     milliseconds);
    QDBusConnection::disconnectFromBus(QStringLiteral("probe"));
    return reached;
}

}  // namespace testing_support
