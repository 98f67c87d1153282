#include "localport/SessionHelperEndpoint.h"

#include "localport/PrivateSessionBus.h"

#include "core/Log.h"

#include <QDBusConnectionInterface>
#include <QDeadlineTimer>
#include <QFileInfo>
#include <QProcess>
#include <QThread>

namespace {

// A fresh helper takes a moment to connect and claim its name.
constexpr int startSeconds = 5;

bool isRunning(const QDBusConnection& bus) {
    QDBusConnectionInterface* daemon = bus.interface();
    return daemon && daemon->isServiceRegistered(localport::helperLabel).value();
}

}  // namespace

SessionHelperEndpoint::SessionHelperEndpoint(QString helperPath, QString simulatorSocket)
    : helperPath_(std::move(helperPath)), simulatorSocket_(std::move(simulatorSocket)) {}

SessionHelperEndpoint::~SessionHelperEndpoint() = default;

QDBusConnection SessionHelperEndpoint::bus() const {
    return privateBus_ ? privateBus_->connection() : QDBusConnection::sessionBus();
}

bool SessionHelperEndpoint::isToolInstalled() const {
    return QFileInfo::exists(helperPath_);
}

bool SessionHelperEndpoint::blessHelperWithLabel(const QString&, localport::HelperError* error) {
    return start(true, error);
}

bool SessionHelperEndpoint::prepareForCall(localport::HelperError* error) {
    if (!reachBus(error))
        return false;
    return isRunning(bus()) || start(false, error);
}

bool SessionHelperEndpoint::reachBus(localport::HelperError* error) {
    if (privateBus_ || QDBusConnection::sessionBus().isConnected())
        return true;
    auto privateBus = std::make_unique<PrivateSessionBus>();
    QString problem;
    if (!privateBus->start(&problem)) {
        *error = {QStringLiteral("D-Bus"), 1,
                  QStringLiteral("There is no D-Bus session bus for the simulated helper, and "
                                 "starting one failed: %1.")
                      .arg(problem)};
        return false;
    }
    ZMRLogDebug(QStringLiteral("no session bus: the simulated helper runs on a private bus at %1")
                    .arg(privateBus->address()));
    privateBus_ = std::move(privateBus);
    return true;
}

bool SessionHelperEndpoint::start(bool replace, localport::HelperError* error) {
    if (!reachBus(error))
        return false;
    QStringList arguments{QStringLiteral("--session"),
                          QStringLiteral("--simulate=%1").arg(simulatorSocket_)};
    if (replace)
        arguments << QStringLiteral("--replace");
    QProcess helper;
    helper.setProgram(helperPath_);
    helper.setArguments(arguments);
    if (privateBus_) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), privateBus_->address());
        helper.setProcessEnvironment(environment);
    }
    qint64 pid = 0;
    if (!helper.startDetached(&pid)) {
        *error = {QStringLiteral("QProcess"), 2,
                  QStringLiteral("Could not start %1: %2.").arg(helperPath_, helper.errorString())};
        return false;
    }
    const QDeadlineTimer deadline(startSeconds * 1000);
    while (!deadline.hasExpired()) {
        const QString owner = bus().interface()->serviceOwner(localport::helperLabel).value();
        // A replacement must be the new instance; otherwise any instance will answer.
        if (!owner.isEmpty() && (!replace || bus().interface()->servicePid(owner).value() == pid))
            return true;
        QThread::msleep(20);
    }
    *error = {QStringLiteral("tarvel-helper"), 3,
              QStringLiteral("%1 started but did not appear on the session bus within %2 s.")
                  .arg(helperPath_)
                  .arg(startSeconds)};
    return false;
}
