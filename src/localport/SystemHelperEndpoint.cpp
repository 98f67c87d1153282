#include "localport/SystemHelperEndpoint.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QProcess>

namespace {

// pkexec's own statuses: the administrator prompt was dismissed, or the user may not.
QString pkexecFailure(int status) {
    switch (status) {
        case 126:
            return QStringLiteral("The administrator password prompt was dismissed.");
        case 127:
            return QStringLiteral("Not authorised to install the helper.");
        default:
            return QStringLiteral("Installing the helper ended with status %1.").arg(status);
    }
}

}  // namespace

SystemHelperEndpoint::Places SystemHelperEndpoint::defaultPlaces() {
    Places places;
    // A packaged helper needs no installing; a build run from the tree installs its own.
    if (QFileInfo::exists(localport::packagedToolPath))
        places.toolPath = localport::packagedToolPath;
    places.installCommand = {
        QStringLiteral("pkexec"),
        QCoreApplication::applicationDirPath() + QStringLiteral("/tarvel-helper"),
        QStringLiteral("--install")};
    return places;
}

SystemHelperEndpoint::SystemHelperEndpoint(Places places) : places_(std::move(places)) {}

QDBusConnection SystemHelperEndpoint::bus() const {
    return QDBusConnection::systemBus();
}

bool SystemHelperEndpoint::isToolInstalled() const {
    return QFileInfo::exists(places_.toolPath) && QFileInfo::exists(places_.activationFilePath);
}

bool SystemHelperEndpoint::blessHelperWithLabel(const QString& label,
                                                localport::HelperError* error) {
    QProcess install;
    install.setProcessChannelMode(QProcess::ForwardedChannels);
    install.start(places_.installCommand.value(0), places_.installCommand.mid(1));
    const bool started = install.waitForStarted();
    // The prompt waits for a person; there is no sensible limit.
    if (started)
        install.waitForFinished(-1);
    const int status = install.exitStatus() == QProcess::NormalExit ? install.exitCode() : -1;
    if (started && status == 0)
        return true;
    if (!started)
        *error = {QStringLiteral("QProcess"), static_cast<std::int64_t>(install.error()),
                  QStringLiteral("Could not run %1 to install %2: %3")
                      .arg(places_.installCommand.value(0), label, install.errorString())};
    else
        *error = {QStringLiteral("pkexec"), status, pkexecFailure(status)};
    return false;
}
