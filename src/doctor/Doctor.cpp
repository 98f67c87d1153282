#include "doctor/Doctor.h"

#include "configurator/RestoreCommand.h"
#include "core/SettingRanges.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"
#include "core/SimulatorAddress.h"
#include "core/ZMRUnifiedLogger.h"
#include "hubs/stem/HubLibrary.h"
#include "localport/HelperProtocol.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <unistd.h>

namespace doctor {

namespace {

using Status = Check::Status;

constexpr auto kInstallPackage = "install the tarvel package (sudo apt install ./tarvel_*.deb)";

Status neededIn(bool needed) {
    return needed ? Status::Failed : Status::NotNeeded;
}

QString firstExisting(const QStringList& candidates) {
    for (const QString& candidate : candidates)
        if (QFileInfo::exists(candidate)) return candidate;
    return {};
}

QString readLine(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return {};
    return QString::fromUtf8(file.readLine()).trimmed();
}

Check hubLibraryCheck(const Places& places, bool hardware) {
    const stem::HubLibrary library(places.hubLibraryCandidates);
    if (library.state() == stem::HubLibrary::State::Loaded)
        return {QStringLiteral("hub library"), Status::Ok,
                QStringLiteral("%1 (%2)").arg(library.path(), library.description()), {}};
    return {QStringLiteral("hub library"), neededIn(hardware), library.problem(),
            QStringLiteral("cmake -S /usr/share/tarvel/hub-module -B hub-module "
                           "-DTARVEL_BRAINSTEM_SDK=<unpacked SDK> && cmake --build hub-module && "
                           "sudo cmake --install hub-module")};
}

// One check per USB device of Acroname's (each hub shows a control device and a hub device).
std::vector<Check> hubDeviceChecks(const Places& places, bool hardware) {
    std::vector<Check> checks;
    const QDir devices(places.sysfsUsbDevices);
    for (const QString& entry : devices.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
        const QString folder = devices.filePath(entry);
        if (readLine(folder + QStringLiteral("/idVendor")) != QStringLiteral("24ff")) continue;
        const QString node = QStringLiteral("%1/%2/%3")
                                 .arg(places.usbDeviceNodes)
                                 .arg(readLine(folder + QStringLiteral("/busnum")).toInt(), 3, 10, QChar('0'))
                                 .arg(readLine(folder + QStringLiteral("/devnum")).toInt(), 3, 10, QChar('0'));
        const QString name = QStringLiteral("hub USB device %1 (serial %2)")
                                 .arg(entry, readLine(folder + QStringLiteral("/serial")));
        if (::access(QFile::encodeName(node).constData(), R_OK | W_OK) == 0)
            checks.push_back({name, Status::Ok, node + QStringLiteral(" is readable and writable"), {}});
        else
            checks.push_back({name, neededIn(hardware),
                              node + QStringLiteral(" is not readable and writable by this user"),
                              QStringLiteral("%1 (its udev rule gives the seated user the hubs), "
                                             "then unplug the hub and plug it in again")
                                  .arg(kInstallPackage)});
    }
    if (checks.empty())
        checks.push_back({QStringLiteral("hubs on USB"), neededIn(hardware),
                          QStringLiteral("no Acroname device (vendor 24ff) on USB"),
                          QStringLiteral("cable and power the hubs; `lsusb -d 24ff:` lists them")});
    return checks;
}

Check helperFilesCheck(const Places& places, bool hardware) {
    const std::pair<QString, const QStringList*> files[] = {
        {QStringLiteral("executable"), &places.helperExecutables},
        {QStringLiteral("D-Bus activation file"), &places.activationFiles},
        {QStringLiteral("D-Bus policy"), &places.busPolicies},
        {QStringLiteral("polkit action"), &places.polkitActions},
        {QStringLiteral("systemd unit"), &places.systemdUnits},
    };
    QStringList missing;
    for (const auto& [what, candidates] : files)
        if (firstExisting(*candidates).isEmpty())
            missing << QStringLiteral("%1 (%2)").arg(what, candidates->join(QStringLiteral(" or ")));
    if (missing.isEmpty())
        return {QStringLiteral("helper installed"), Status::Ok, firstExisting(places.helperExecutables), {}};
    return {QStringLiteral("helper installed"), neededIn(hardware),
            QStringLiteral("missing: ") + missing.join(QStringLiteral("; ")),
            QStringLiteral("%1, or run `pkexec tarvel-helper --install` from a build").arg(kInstallPackage)};
}

Check polkitActionCheck(const Places& places, bool hardware) {
    const QString path = firstExisting(places.polkitActions);
    QFile file(path);
    if (!path.isEmpty() && file.open(QIODevice::ReadOnly) &&
        file.readAll().contains(localport::polkitAction.toUtf8()))
        return {QStringLiteral("polkit action"), Status::Ok,
                QStringLiteral("%1 in %2").arg(localport::polkitAction, path), {}};
    return {QStringLiteral("polkit action"), neededIn(hardware),
            QStringLiteral("%1 is not declared").arg(localport::polkitAction),
            QString::fromUtf8(kInstallPackage)};
}

Check helperAnswersCheck(const Places& places, bool hardware) {
    const QString name = QStringLiteral("helper answers");
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected())
        return {name, neededIn(hardware), QStringLiteral("no system bus"),
                QStringLiteral("start the system bus (sudo systemctl start dbus)")};
    QDBusMessage call = QDBusMessage::createMethodCall(localport::helperLabel, localport::helperObjectPath,
                                                       localport::helperInterface,
                                                       localport::getVersionMethod);
    const QDBusMessage reply = bus.call(call, QDBus::Block, places.helperTimeoutMilliseconds);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return {name, neededIn(hardware),
                QStringLiteral("%1 does not answer on the system bus (%2)")
                    .arg(localport::helperLabel, reply.errorMessage()),
                QStringLiteral("%1; `journalctl -u %2` tells why it does not start")
                    .arg(kInstallPackage, localport::helperLabel)};
    const qint64 version = reply.arguments().constFirst().toLongLong();
    if (version != localport::helperVersion)
        return {name, neededIn(hardware),
                QStringLiteral("version %1 answers, this Tarvel needs %2")
                    .arg(version)
                    .arg(localport::helperVersion),
                QStringLiteral("install the helper of this Tarvel: %1").arg(kInstallPackage)};
    return {name, Status::Ok, QStringLiteral("version %1 on the system bus").arg(version), {}};
}

// Where idevicerestore restores, Apple Configurator's tool is not needed at all.
Check configuratorCheck(const Places& places, configurator::EngineKind engine) {
    const QFileInfo tool(places.cfgutilPath);
    if (tool.isFile() && tool.isExecutable())
        return {QStringLiteral("Apple Configurator's tool"), Status::Ok, places.cfgutilPath, {}};
    if (engine == configurator::EngineKind::idevicerestore)
        return {QStringLiteral("Apple Configurator's tool"), Status::NotNeeded,
                QStringLiteral("%1 is not an executable file; idevicerestore restores here")
                    .arg(places.cfgutilPath),
                {}};
    return {QStringLiteral("Apple Configurator's tool"), Status::Failed,
            QStringLiteral("%1 is not an executable file").arg(places.cfgutilPath),
            QStringLiteral("install Apple Configurator's cfgutil there, or name it with TARVEL_CFGUTIL")};
}

Check sessionBusCheck() {
    if (QDBusConnection::sessionBus().isConnected())
        return {QStringLiteral("session bus"), Status::Ok, QStringLiteral("connected"), {}};
    // Nothing stops without it: the desktop only cannot keep the display awake.
    return {QStringLiteral("session bus"), Status::NotNeeded,
            QStringLiteral("none (DBUS_SESSION_BUS_ADDRESS is unset or dead): the desktop "
                           "cannot keep the display awake"),
            QStringLiteral("run Tarvel in a desktop session, or under `dbus-run-session`")};
}

Check logCheck() {
    ZMRUnifiedLogger& logger = ZMRUnifiedLogger::sharedLogger();
    const QString path = logger.logFileURL();
    const QFileInfo file(path);
    const QFileInfo folder(file.absolutePath());
    QString problem = logger.writeProblem();
    if (problem.isEmpty() && !(folder.isDir() && folder.isWritable()))
        problem = QStringLiteral("the folder %1 is not writable").arg(folder.absoluteFilePath());
    else if (problem.isEmpty() && file.isSymLink())
        problem = QStringLiteral("%1 is a symbolic link").arg(path);
    else if (problem.isEmpty() && file.exists() && file.ownerId() != ::getuid())
        problem = QStringLiteral("%1 belongs to another user").arg(path);
    if (problem.isEmpty())
        return {QStringLiteral("log"), Status::Ok, path, {}};
    return {QStringLiteral("log"), Status::Failed, problem,
            QStringLiteral("choose a folder of your own: tarvel-cli defaults write LogFolderPath <folder>")};
}

Check settingsCheck(core::Settings& settings) {
    QStringList problems;
    for (const core::SettingKey& key : core::settingKeys()) {
        const QVariant value = settings.userValue(QString::fromLatin1(key.name));
        if (!value.isValid()) continue;
        if (const QString problem = core::settingValueProblem(key, value); !problem.isEmpty())
            problems << QStringLiteral("%1: %2").arg(QString::fromLatin1(key.name), problem);
    }
    if (problems.isEmpty())
        return {QStringLiteral("settings"), Status::Ok, QStringLiteral("every value you set is valid"), {}};
    return {QStringLiteral("settings"), Status::Failed, problems.join(QStringLiteral("; ")),
            QStringLiteral("correct them with `tarvel-cli defaults write KEY VALUE`, or drop them "
                           "with `tarvel-cli defaults delete KEY`")};
}

Check simulatorCheck(const std::optional<QString>& socket) {
    if (!socket)
        return {QStringLiteral("simulator"), Status::NotNeeded,
                QStringLiteral("not selected (--simulate or TARVEL_SIM selects it)"), {}};
    if (const auto problem = core::simulatorProblem(*socket))
        return {QStringLiteral("simulator"), Status::Failed, *problem,
                QStringLiteral("start it: tarvel-sim --socket %1 &").arg(*socket)};
    return {QStringLiteral("simulator"), Status::Ok, QStringLiteral("answers at %1").arg(*socket), {}};
}

}  // namespace

Places Places::system() {
    Places places;
    places.hubLibraryCandidates = stem::HubLibrary::searchPaths();
    places.helperExecutables = {localport::packagedToolPath, localport::installedToolPath};
    places.activationFiles = {localport::installedActivationFilePath};
    places.busPolicies = {QStringLiteral("/usr/share/dbus-1/system.d/com.kestrune.tarvelhelper.conf"),
                          localport::installedBusPolicyPath};
    places.polkitActions = {localport::installedPolkitActionPath};
    places.systemdUnits = {QStringLiteral("/lib/systemd/system/com.kestrune.tarvelhelper.service"),
                           localport::installedSystemdUnitPath};
    const QString named = qEnvironmentVariable("TARVEL_CFGUTIL");
    places.cfgutilPath = named.isEmpty() ? QString::fromUtf8(configurator::appleToolPath) : named;
    places.engine = EnginePlaces::system();
    return places;
}

DoctorReport examine(const Places& places, core::Settings& settings,
                     const std::optional<QString>& simulatorSocket) {
    const bool hardware = !simulatorSocket.has_value();
    DoctorReport report(hardware ? QStringLiteral("hardware") : QStringLiteral("simulator"));
    report.add(hubLibraryCheck(places, hardware));
    for (Check& check : hubDeviceChecks(places, hardware)) report.add(std::move(check));
    report.add(helperFilesCheck(places, hardware));
    report.add(polkitActionCheck(places, hardware));
    report.add(helperAnswersCheck(places, hardware));
    report.add(configuratorCheck(places, chosenEngine(settings, places.cfgutilPath, !hardware)));
    for (Check& check : engineChecks(places.engine, settings, places.cfgutilPath, !hardware))
        report.add(std::move(check));
    report.add(sessionBusCheck());
    report.add(logCheck());
    report.add(settingsCheck(settings));
    report.add(simulatorCheck(simulatorSocket));
    return report;
}

}  // namespace doctor
