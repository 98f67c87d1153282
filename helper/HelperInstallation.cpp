#include "HelperInstallation.h"

#include "localport/HelperProtocol.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSaveFile>

#include <cstdio>

namespace {

struct InstalledFile {
    const char* resource;
    const QString& path;
};

bool fail(const QString& message) {
    std::fprintf(stderr, "tarvel-helper: %s\n", qPrintable(message));
    return false;
}

bool makeFolderFor(const QString& path) {
    const QString folder = QFileInfo(path).absolutePath();
    return QDir().mkpath(folder) || fail(QStringLiteral("cannot create %1").arg(folder));
}

bool copyExecutable(const QString& target) {
    if (!makeFolderFor(target))
        return false;
    // Replacing a running helper's file in place would change it under its feet.
    QFile::remove(target);
    if (!QFile::copy(QCoreApplication::applicationFilePath(), target))
        return fail(QStringLiteral("cannot copy the helper to %1").arg(target));
    return QFile::setPermissions(target, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                             QFile::ReadGroup | QFile::ExeGroup | QFile::ReadOther |
                                             QFile::ExeOther) ||
           fail(QStringLiteral("cannot make %1 executable").arg(target));
}

bool writeFile(const InstalledFile& file, const QString& target) {
    QFile resource(QString::fromLatin1(file.resource));
    if (!resource.open(QIODevice::ReadOnly))
        return fail(QStringLiteral("the helper was built without %1").arg(resource.fileName()));
    QByteArray content = resource.readAll();
    content.replace("@TOOL_PATH@", localport::installedToolPath.toUtf8());
    QSaveFile out(target);
    if (!makeFolderFor(target) || !out.open(QIODevice::WriteOnly))
        return fail(QStringLiteral("cannot write %1").arg(target));
    out.write(content);
    return out.commit() || fail(QStringLiteral("cannot write %1").arg(target));
}

// The bus and systemd pick the new files up; where either is absent there is nothing to tell.
void announce() {
    QDBusConnection::systemBus().call(QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("ReloadConfig")));
    if (QFileInfo::exists(QStringLiteral("/run/systemd/system")))
        QProcess::execute(QStringLiteral("systemctl"), {QStringLiteral("daemon-reload")});
}

}  // namespace

int installHelper(const QString& root) {
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
        if (!writeFile(file, prefix + file.path))
            return 1;
    if (prefix.isEmpty())
        announce();
    std::printf("tarvel-helper installed as %s\n",
                qPrintable(prefix + localport::installedToolPath));
    return 0;
}
