#include "doctor/EngineChecks.h"

#include "configurator/ProcessEngine.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"
#include "core/StateFolder.h"
#include "engines/EngineChoice.h"
#include "restore/RestoreEngine.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QStorageInfo>

#include <fnmatch.h>

#include <set>
#include <tuple>

namespace doctor {

namespace {

using Status = Check::Status;

#ifdef Q_OS_LINUX
constexpr bool kLinux = true;
#else
constexpr bool kLinux = false;
#endif

constexpr qint64 kGigabyte = 1000LL * 1000 * 1000;
// An IPSW is over 10 GB, and idevicerestore extracts its filesystem beside the restore.
constexpr qint64 kRoomForARestore = 20 * kGigabyte;

constexpr auto kMacCapableStack =
    "a bench needs idevicerestore from current source (1.0.0-NNN-g… or later) with libirecovery "
    "≥ 1.3.0, libimobiledevice ≥ 1.4.0, libtatsu ≥ 1.0.4 and libplist ≥ 2.6.0: build that stack "
    "from source, or use a distribution that ships it (e.g. Ubuntu 26.04)";
constexpr auto kCurrentUsbmuxd =
    "install usbmuxd built from upstream's current source (Debian 12's 1.1.1 does not know Macs "
    "in restore mode), or a distribution that ships it (e.g. Ubuntu 26.04)";

const QStringList& restoreModeIds() {
    static const QStringList ids{QStringLiteral("1901"), QStringLiteral("1902"),
                                 QStringLiteral("1903"), QStringLiteral("1904"),
                                 QStringLiteral("1905")};
    return ids;
}

bool globMatches(const QString& pattern, const QString& subject) {
    return ::fnmatch(pattern.toUtf8().constData(), subject.toUtf8().constData(), 0) == 0;
}

// One alternative of a rule's match: ENV{PRODUCT} reads vendor/product/release in bare hex, and
// a Mac's release is nobody's business here.
bool patternCovers(const QString& key, const QString& pattern, const QString& id) {
    if (key == QLatin1String("ENV{PRODUCT}")) {
        const QStringList parts = pattern.split(QLatin1Char('/'));
        if (parts.size() >= 3)
            return globMatches(parts[0], QStringLiteral("5ac")) && globMatches(parts[1], id);
        return globMatches(pattern, QStringLiteral("5ac/%1/0").arg(id));
    }
    return globMatches(pattern, id);
}

QString readText(const QString& path) {
    QFile file(path);
    // A rule file is a few kilobytes; anything far bigger is not one to read whole.
    if (!file.open(QIODevice::ReadOnly) || file.size() > 1024 * 1024)
        return {};
    return QString::fromUtf8(file.readAll());
}

// The rule files in force that speak of usbmux, by name or by what they do.
QStringList usbmuxdRuleFiles(const QStringList& folders) {
    QStringList files;
    std::set<QString> seen;
    for (const QString& folder : folders) {
        const QDir dir(folder);
        for (const QString& name :
             dir.entryList({QStringLiteral("*.rules")}, QDir::Files, QDir::Name)) {
            if (!seen.insert(name).second)
                continue;
            const QString path = dir.filePath(name);
            if (name.contains(QLatin1String("usbmux")) ||
                readText(path).contains(QLatin1String("usbmux")))
                files << path;
        }
    }
    return files;
}

QString foundExecutable(const EnginePlaces& places, const QString& name,
                        const QStringList& candidates) {
    if (const QString found = QStandardPaths::findExecutable(name, places.executableFolders);
        !found.isEmpty())
        return found;
    for (const QString& candidate : candidates)
        if (QFileInfo(candidate).isExecutable())
            return candidate;
    return {};
}

Check engineChoiceCheck(const core::Settings& settings, const QString& cfgutilPath,
                        bool simulatedOnLinux, configurator::EngineKind kind) {
    const QString name = QStringLiteral("restore engine");
    const QString engine = configurator::engineName(kind);
    const QString setting = settings.stringForKey(core::keys::restoreEngine);
    if (setting == QLatin1String("cfgutil") || setting == QLatin1String("idevicerestore"))
        return {name,
                Status::Ok,
                QStringLiteral("%1, because the restoreEngine setting names it").arg(engine),
                {}};
    QString why;
    if (simulatedOnLinux)
        why = QStringLiteral("a simulated station on Linux stands in for a Linux bench");
    else if (kind == configurator::EngineKind::cfgutil)
        why = QStringLiteral("Apple Configurator's tool is at %1").arg(cfgutilPath);
    else
        why = QStringLiteral("Apple Configurator's tool is not at %1").arg(cfgutilPath);
    const QString readAs =
        setting == QLatin1String("auto") ? QString() : QStringLiteral(", read as \"auto\"");
    return {name,
            Status::Ok,
            QStringLiteral("%1, because restoreEngine is \"%2\"%3 and %4")
                .arg(engine, setting, readAs, why),
            {}};
}

Check toolCheck(const QString& toolPath) {
    const QString name = QStringLiteral("idevicerestore");
    if (!toolPath.isEmpty() && QFileInfo(toolPath).isFile() && QFileInfo(toolPath).isExecutable())
        return {name, Status::Ok, toolPath, {}};
    const QString detail =
        toolPath.isEmpty()
            ? QStringLiteral("not found: idevicerestorePath is empty and none is on PATH")
            : QStringLiteral("%1 is not an executable file").arg(toolPath);
    return {name, Status::Failed, detail,
            QStringLiteral("install idevicerestore, or name it with `tarvel-cli defaults write "
                           "idevicerestorePath <path>`")};
}

Check versionCheck(const QString& toolPath, const QString& versionLine) {
    const QString name = QStringLiteral("idevicerestore version");
    if (versionLine.isEmpty())
        return {name, Status::Failed,
                QStringLiteral("`%1 -v` printed no version line").arg(toolPath),
                QStringLiteral("check that %1 is idevicerestore and runs on this system")
                    .arg(toolPath)};
    switch (macSupport(versionLine)) {
        case MacSupport::Known:
            return {name, Status::Ok, versionLine, {}};
        case MacSupport::TooOld:
            return {name, Status::Failed,
                    QStringLiteral("%1: cannot restore Macs").arg(versionLine),
                    QString::fromUtf8(kMacCapableStack)};
        case MacSupport::Unreadable:
            break;
    }
    return {
        name, Status::Warning,
        QStringLiteral("%1: not a version line that tells whether it knows Macs").arg(versionLine),
        QString::fromUtf8(kMacCapableStack)};
}

Check usbmuxdCheck(const EnginePlaces& places, bool hardware) {
    const QString name = QStringLiteral("usbmuxd");
    const QString found =
        foundExecutable(places, QStringLiteral("usbmuxd"), places.usbmuxdCandidates);
    if (!found.isEmpty())
        return {name, Status::Ok, found, {}};
    QStringList looked = {QStringLiteral("not on PATH")};
    for (const QString& candidate : places.usbmuxdCandidates)
        looked << QStringLiteral("not at %1").arg(candidate);
    return {name, hardware ? Status::Failed : Status::NotNeeded, looked.join(QStringLiteral(", ")),
            QString::fromUtf8(kCurrentUsbmuxd)};
}

Check udevRuleCheck(const EnginePlaces& places, bool hardware) {
    const QString name = QStringLiteral("usbmuxd udev rule");
    const Status missing = hardware ? Status::Failed : Status::NotNeeded;
    const QString fix = QStringLiteral("%1, then `sudo udevadm control --reload`")
                            .arg(QString::fromUtf8(kCurrentUsbmuxd));
    const QStringList files = usbmuxdRuleFiles(places.udevRuleFolders);
    if (files.isEmpty())
        return {name, missing,
                QStringLiteral("no usbmuxd rule in %1")
                    .arg(places.udevRuleFolders.join(QStringLiteral(", "))),
                fix};
    QString rules;
    for (const QString& file : files) rules += readText(file) + QLatin1Char('\n');
    const QString joined = files.join(QStringLiteral(", "));
    if (const QStringList unknown = restoreModeIdsUnknownTo(rules); !unknown.isEmpty())
        return {name, missing,
                QStringLiteral("%1 does not know the restore-mode product ids %2")
                    .arg(joined, unknown.join(QStringLiteral(", "))),
                fix};
    return {name,
            Status::Ok,
            QStringLiteral("%1 knows the restore-mode product ids 0x1901–0x1905").arg(joined),
            {}};
}

Check firmwareCheck(const QString& firmware) {
    const QString name = QStringLiteral("firmware");
    // Not a failure: `restore --ipsw` names firmware for one restore.
    if (firmware.isEmpty())
        return {name, Status::Warning,
                QStringLiteral("none given: idevicerestore restores only the firmware it is given"),
                QStringLiteral("set firmwarePath or pass --ipsw")};
    if (QFileInfo::exists(firmware))
        return {name, Status::Ok, firmware, {}};
    return {name, Status::Failed, QStringLiteral("%1 does not exist").arg(firmware),
            QStringLiteral("set firmwarePath to an IPSW file or extracted folder that exists, or "
                           "pass --ipsw")};
}

// The nearest folder that exists: the state folder is made on first use.
QString existingFolder(QString folder) {
    while (!folder.isEmpty() && !QFileInfo(folder).isDir()) {
        const QString parent = QFileInfo(folder).absolutePath();
        if (parent == folder)
            break;
        folder = parent;
    }
    return folder;
}

Check freeSpaceCheck(const QString& stateFolder, bool hardware) {
    const QString name = QStringLiteral("free space");
    const QStorageInfo storage(existingFolder(stateFolder));
    if (!storage.isValid() || !storage.isReady())
        return {name, Status::Warning,
                QStringLiteral("cannot tell the free space of %1").arg(stateFolder),
                QStringLiteral("check that %1 can be made and written").arg(stateFolder)};
    const qint64 available = storage.bytesAvailable();
    const QString detail = QStringLiteral("%1 GB free for %2")
                               .arg(double(available) / kGigabyte, 0, 'f', 1)
                               .arg(stateFolder);
    if (available >= kRoomForARestore)
        return {name, Status::Ok, detail, {}};
    // A simulated station's firmware is a few bytes.
    return {name, hardware ? Status::Warning : Status::NotNeeded,
            detail + QStringLiteral(" (below 20 GB: an IPSW is over 10 GB)"),
            QStringLiteral("free at least 20 GB there, or move the state folder with "
                           "XDG_STATE_HOME")};
}

}  // namespace

EnginePlaces EnginePlaces::system() {
    EnginePlaces places;
    places.executableFolders =
        qEnvironmentVariable("PATH").split(QLatin1Char(':'), Qt::SkipEmptyParts);
    places.usbmuxdCandidates = {QStringLiteral("/usr/sbin/usbmuxd")};
    places.udevRuleFolders = {QStringLiteral("/etc/udev/rules.d"),
                              QStringLiteral("/usr/lib/udev/rules.d")};
    places.stateFolder = core::stateFolder();
    places.makeEngine = [](core::Settings& settings) { return engines::makeEngine(settings); };
    return places;
}

MacSupport macSupport(const QString& versionLine) {
    static const QRegularExpression version(QStringLiteral(
        R"(^idevicerestore\s+(\d+)\.(\d+)(?:\.(\d+))?(-\d+-g[0-9a-fA-F]+)?(?![\d.]))"));
    const QRegularExpressionMatch match = version.match(versionLine.trimmed());
    if (!match.hasMatch())
        return MacSupport::Unreadable;
    const std::tuple<int, int, int> release{match.captured(1).toInt(), match.captured(2).toInt(),
                                            match.captured(3).toInt()};
    const std::tuple<int, int, int> lastWithoutMacs{1, 0, 0};
    // 1.0.0 is the last release, from 2020; what knows Macs is a build of master since.
    if (release == lastWithoutMacs)
        return match.hasCaptured(4) ? MacSupport::Known : MacSupport::TooOld;
    return release > lastWithoutMacs ? MacSupport::Known : MacSupport::TooOld;
}

QStringList restoreModeIdsUnknownTo(const QString& ruleText) {
    static const QRegularExpression match(
        QStringLiteral(R"re((ENV\{PRODUCT\}|ATTRS?\{idProduct\})\s*==\s*"([^"]*)")re"));
    QStringList unknown = restoreModeIds();
    for (const QString& line : ruleText.split(QLatin1Char('\n'))) {
        if (line.trimmed().startsWith(QLatin1Char('#')))
            continue;
        for (auto it = match.globalMatch(line); it.hasNext();) {
            const QRegularExpressionMatch found = it.next();
            for (const QString& pattern : found.captured(2).split(QLatin1Char('|')))
                unknown.removeIf([&](const QString& id) {
                    return patternCovers(found.captured(1), pattern, id);
                });
        }
    }
    for (QString& id : unknown) id.prepend(QStringLiteral("0x"));
    return unknown;
}

configurator::EngineKind chosenEngine(core::Settings& settings, const QString& cfgutilPath,
                                      bool simulated) {
    return configurator::chooseEngine(settings.stringForKey(core::keys::restoreEngine),
                                      QFileInfo::exists(cfgutilPath), simulated && kLinux);
}

std::vector<Check> engineChecks(const EnginePlaces& places, core::Settings& settings,
                                const QString& cfgutilPath, bool simulated) {
    const bool simulatedOnLinux = simulated && kLinux;
    const configurator::EngineKind kind = chosenEngine(settings, cfgutilPath, simulated);
    std::vector<Check> checks{engineChoiceCheck(settings, cfgutilPath, simulatedOnLinux, kind)};
    if (kind != configurator::EngineKind::idevicerestore)
        return checks;
    const std::unique_ptr<restore::RestoreEngine> engine = places.makeEngine(settings);
    const QString toolPath = engines::idevicerestorePath(settings);
    checks.push_back(toolCheck(toolPath));
    if (checks.back().status == Status::Ok)
        checks.push_back(versionCheck(toolPath, engine->version()));
    checks.push_back(usbmuxdCheck(places, !simulated));
    checks.push_back(udevRuleCheck(places, !simulated));
    checks.push_back(firmwareCheck(engine->firmwarePath()));
    checks.push_back(freeSpaceCheck(places.stateFolder, !simulated));
    return checks;
}

}  // namespace doctor
