#include "localport/SessionHelperEndpoint.h"

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

QDBusConnection SessionHelperEndpoint::bus() const {
    return QDBusConnection::sessionBus();
}

bool SessionHelperEndpoint::isToolInstalled() const {
    return QFileInfo::exists(helperPath_);
}

bool SessionHelperEndpoint::blessHelperWithLabel(const QString&, localport::HelperError* error) {
    return start(true, error);
}

void SessionHelperEndpoint::prepareForCall() {
    if (isRunning(bus()))
        return;
    localport::HelperError error;
    if (!start(false, &error))
        ZMRLogLevel1(error.localizedDescription);
}

bool SessionHelperEndpoint::start(bool replace, localport::HelperError* error) {
    if (!bus().isConnected()) {
        *error = {QStringLiteral("D-Bus"), 1,
                  QStringLiteral("There is no D-Bus session bus for the simulated helper (%1); "
                                 "run the command under dbus-run-session.")
                      .arg(bus().lastError().message())};
        return false;
    }
    QStringList arguments{QStringLiteral("--session"),
                          QStringLiteral("--simulate=%1").arg(simulatorSocket_)};
    if (replace)
        arguments << QStringLiteral("--replace");
    qint64 pid = 0;
    if (!QProcess::startDetached(helperPath_, arguments, QString(), &pid)) {
        *error = {QStringLiteral("QProcess"), 2,
                  QStringLiteral("Could not start %1.").arg(helperPath_)};
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
              QStringLiteral("%1 did not appear on the session bus within %2 s.")
                  .arg(helperPath_)
                  .arg(startSeconds)};
    return false;
}
