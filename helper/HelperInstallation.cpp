#include "HelperInstallation.h"

#include "localport/HelperProtocol.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSaveFile>
#include <QThread>

#include <cstdio>

#include <signal.h>

namespace {

// Fixed modes, whatever the umask of the administrator who installs: the bus, polkit and
// systemd read these files as other users, and a group- or world-writable one is a foothold.
constexpr QFileDevice::Permissions executableMode =
    QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadGroup | QFile::ExeGroup |
    QFile::ReadOther | QFile::ExeOther;
constexpr QFileDevice::Permissions folderMode = executableMode;
constexpr QFileDevice::Permissions fileMode =
    QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther;

constexpr int stopMilliseconds = 5000;

struct InstalledFile {
    const char* resource;
    const QString& path;
};

bool refuse(const QString& message) {
    std::fprintf(stderr, "tarvel-helper: %s\n", qPrintable(message));
    return false;
}

// Only the folders this installation creates get its mode; existing ones stay as they are.
bool makeFolderFor(const QString& path) {
    QStringList missing;
    for (QString folder = QFileInfo(path).absolutePath(); !QFileInfo::exists(folder);
         folder = QFileInfo(folder).absolutePath())
        missing.prepend(folder);
    for (const QString& folder : missing)
        if (!QDir().mkdir(folder) || !QFile::setPermissions(folder, folderMode))
            return refuse(QStringLiteral("cannot create %1").arg(folder));
    return true;
}

// Written aside and renamed into place, so a running helper keeps the file it was started from.
bool writeFile(const QByteArray& content, const QString& target, QFileDevice::Permissions mode) {
    if (!makeFolderFor(target))
        return false;
    QSaveFile out(target);
    if (!out.open(QIODevice::WriteOnly) || !out.setPermissions(mode) ||
        out.write(content) != content.size() || !out.commit())
        return refuse(QStringLiteral("cannot write %1").arg(target));
    return true;
}

bool copyExecutable(const QString& target) {
    QFile self(QCoreApplication::applicationFilePath());
    if (!self.open(QIODevice::ReadOnly))
        return refuse(QStringLiteral("cannot read %1").arg(self.fileName()));
    return writeFile(self.readAll(), target, executableMode);
}

bool copyResource(const InstalledFile& file, const QString& target) {
    QFile resource(QString::fromLatin1(file.resource));
    if (!resource.open(QIODevice::ReadOnly))
        return refuse(QStringLiteral("the helper was built without %1").arg(resource.fileName()));
    QByteArray content = resource.readAll();
    content.replace("@TOOL_PATH@", localport::installedToolPath.toUtf8());
    return writeFile(content, target, fileMode);
}

// The bus and systemd pick the new files up; where either is absent there is nothing to tell.
void announce() {
    QDBusConnection::systemBus().call(QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("ReloadConfig")));
    if (QFileInfo::exists(QStringLiteral("/run/systemd/system")))
        QProcess::execute(QStringLiteral("systemctl"), {QStringLiteral("daemon-reload")});
}

// The bus starts the new helper only once no instance owns its name; an old one would go on
// answering with the old version, and every request would ask for another reinstall.
void stopRunningHelper() {
    QDBusConnection bus = QDBusConnection::systemBus();
    QDBusConnectionInterface* daemon = bus.isConnected() ? bus.interface() : nullptr;
    const QString owner = daemon ? daemon->serviceOwner(localport::helperLabel).value() : QString();
    if (owner.isEmpty())
        return;
    const uint pid = daemon->servicePid(owner).value();
    if (pid == 0 || ::kill(static_cast<pid_t>(pid), SIGTERM) != 0) {
        refuse(QStringLiteral("cannot stop the running helper (%1); it quits after 30 s without a "
                            "call")
                 .arg(owner));
        return;
    }
    const QDeadlineTimer deadline(stopMilliseconds);
    while (daemon->isServiceRegistered(localport::helperLabel).value() && !deadline.hasExpired())
        QThread::msleep(20);
    if (daemon->isServiceRegistered(localport::helperLabel).value())
        refuse(QStringLiteral("the running helper (process %1) did not stop").arg(pid));
}

}  // namespace

int installHelper(const QString& root, bool replaceRunning) {
    const QString prefix = root == QLatin1String("/") ? QString() : QDir::cleanPath(root);
    const InstalledFile files[] = {
        {":/helper/dbus/com.kestrune.tarvelhelper.conf", localport::installedBusPolicyPath},
        {":/helper/dbus/com.kestrune.tarvelhelper.service", localport::installedActivationFilePath},
        {":/helper/polkit/com.kestrune.tarvelhelper.policy", localport::installedPolkitActionPath},
        {":/helper/systemd/com.kestrune.tarvelhelper.service", localport::installedSystemdUnitPath},
    };
    if (!copyExecutable(prefix + localport::installedToolPath))
        return 1;
    for (const InstalledFile& file : files)
        if (!copyResource(file, prefix + file.path))
            return 1;
    if (prefix.isEmpty())
        announce();
    if (prefix.isEmpty() || replaceRunning)
        stopRunningHelper();
    std::printf("tarvel-helper installed as %s\n",
                qPrintable(prefix + localport::installedToolPath));
    return 0;
}
