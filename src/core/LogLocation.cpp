#include "core/LogLocation.h"

#include "core/BundleInfo.h"
#include "core/RealHomeFolder.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"

#include <QDir>
#include <QFileInfo>

#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

extern char** environ;

namespace core {
namespace {

constexpr uid_t kSecurityAgentUid = 92;

QString expandTilde(const QString& path, const std::function<QString()>& home) {
    if (path == "~") return home();
    if (path.startsWith("~/")) return home() + path.mid(1);
    return path;
}

bool exists(const QString& path) {
    struct stat info {};
    return ::stat(QFile::encodeName(path).constData(), &info) == 0;
}

QString makeUniqueFolder(const QString& templatePath) {
    QByteArray buffer = QFile::encodeName(templatePath);
    if (!::mkdtemp(buffer.data())) return {};
    return QFile::decodeName(buffer);
}

// The fixed folder is shared with every other account on the machine: use it only when it is a
// real folder of ours, never a link someone else put there.
bool ensurePrivateFolder(const QString& path) {
    const QByteArray name = QFile::encodeName(path);
    if (::mkdir(name.constData(), 0700) == 0) return true;
    struct stat info {};
    if (::lstat(name.constData(), &info) != 0) return false;
    return S_ISDIR(info.st_mode) && info.st_uid == ::geteuid();
}

QString chooseFileName(const LogLocationInputs& inputs) {
    if (!inputs.logFileNamePreference.isEmpty()) return inputs.logFileNamePreference;
    if (!inputs.bundleLogFileName.isEmpty()) return inputs.bundleLogFileName;
    return QStringLiteral("generic.log");
}

LogLocation chooseFolder(const LogLocationInputs& inputs) {
    const QString preferred = expandTilde(inputs.logFolderPathPreference, inputs.realHomeFolder);
    if (!preferred.isEmpty() && exists(preferred))
        return {expandTilde(preferred, inputs.realHomeFolder), {}, false};

    if (inputs.realUserId == 0 || inputs.realUserId == kSecurityAgentUid) {
        if (ensurePrivateFolder(inputs.rootFolder)) return {inputs.rootFolder, {}, true};
        const QString unique = makeUniqueFolder(inputs.uniqueFolderTemplate);
        return {unique.isEmpty() ? inputs.rootFolder : unique, {}, true};
    }

    if (inputs.touchMarker) inputs.touchMarker();
    const QString userFolder = userLogFolder(inputs.realHomeFolder());
    if (exists(userFolder)) return {userFolder, {}, false};
#ifndef Q_OS_MACOS
    // Unlike ~/Library/Logs, ~/.local/state is not there on every fresh account.
    if (QDir().mkpath(userFolder)) return {userFolder, {}, false};
#endif
    const QString unique = makeUniqueFolder(inputs.uniqueFolderTemplate);
    if (!unique.isEmpty()) return {unique, {}, true};
    return {userFolder, {}, false};
}

}  // namespace

QString userLogFolder(const QString& home) {
#ifdef Q_OS_MACOS
    return home + QStringLiteral("/Library/Logs");
#else
    return home + QStringLiteral("/.local/state/tarvel");
#endif
}

LogLocation chooseLogLocation(const LogLocationInputs& inputs) {
    LogLocation location = chooseFolder(inputs);
    location.fileName = chooseFileName(inputs);
    if (!exists(location.folder)) QDir().mkpath(location.folder);
    return location;
}

void touchMarkerFile() {
    const char* argv[] = {"/usr/bin/touch", "/tmp/vnd", nullptr};
    pid_t pid = 0;
    if (::posix_spawn(&pid, argv[0], nullptr, nullptr, const_cast<char**>(argv), environ) != 0)
        return;
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
}

LogLocationInputs processLogLocationInputs() {
    Settings& settings = Settings::shared();
    LogLocationInputs inputs;
    inputs.logFolderPathPreference = settings.stringForKey(keys::LogFolderPath);
    inputs.logFileNamePreference = settings.stringForKey(keys::LogFileName);
    inputs.bundleLogFileName = BundleInfo::shared().value("LogFileName").toString();
    inputs.realUserId = ::getuid();
    inputs.realHomeFolder = [] { return realHomeFolder(); };
    inputs.touchMarker = touchMarkerFile;
    return inputs;
}

}  // namespace core
