#include "support/PrivateBus.h"

#include "configurator/Scripts.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>

namespace testing_support {

PrivateBus::PrivateBus() {
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

FakePolkit::FakePolkit(const PrivateBus& bus) : bus_(bus) {
    mock_.setProcessEnvironment(bus.environment());
    mock_.start(QStringLiteral(TARVEL_TEST_PYTHON),
                {QStringLiteral("-m"), QStringLiteral("dbusmock"), QStringLiteral("--system"),
                 QStringLiteral("--template"), QStringLiteral("polkitd")});
    running_ = mock_.waitForStarted(5000) &&
               bus.waitForOwner(QStringLiteral("org.freedesktop.PolicyKit1"), true);
}

FakePolkit::~FakePolkit() {
    mock_.terminate();
    mock_.waitForFinished(5000);
}

void FakePolkit::allow(const QStringList& actions) {
    QDBusConnection control = bus_.connect(QStringLiteral("polkit-control"));
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.PolicyKit1"),
        QStringLiteral("/org/freedesktop/PolicyKit1/Authority"),
        QStringLiteral("org.freedesktop.DBus.Mock"), QStringLiteral("SetAllowed"));
    call << actions;
    control.call(call);
}

}  // namespace testing_support
