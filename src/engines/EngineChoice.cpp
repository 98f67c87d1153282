#include "engines/EngineChoice.h"

#include "engines/CfgutilEngine.h"
#include "engines/IdevicerestoreEngine.h"

#include "configurator/ProcessEngine.h"
#include "configurator/ZMRConfigurator2Utility.h"
#include "core/Alerts.h"
#include "core/Clock.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"
#include "core/StateFolder.h"
#include "usb/UsbRegistry.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <memory>

namespace engines {
namespace {

// A simulated station restores a few bytes in place of an IPSW of many gigabytes, so the
// whole path runs without one.
QString simulatedStationFirmware() {
    const QString folder = core::stateFolder() + QStringLiteral("/simulated-firmware");
    const QString path = folder + QStringLiteral("/UniversalMac_15.3.1_24D70_Restore.ipsw");
    if (QFileInfo::exists(path) || !QDir().mkpath(folder))
        return path;
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write("A simulated station's stand-in for macOS 15.3.1 (24D70).\n");
    return path;
}

std::unique_ptr<restore::RestoreEngine> makeIdevicerestore(core::Settings& settings) {
    IdevicerestoreEngine::Collaborators c;
    c.settings = &settings;
    c.alerts = &core::Alerts::shared();
    c.clock = &core::Clock::wall();  // only the runners' grace for a child process
    c.toolPath = idevicerestorePath(*c.settings);
    c.stateFolder = core::stateFolder();
    c.registry = [] { return usb::UsbRegistry::shared().devices(); };
    if (configurator::simulatedOnLinux())
        c.fallbackFirmware = simulatedStationFirmware();
    return std::make_unique<IdevicerestoreEngine>(std::move(c));
}

}  // namespace

QString idevicerestorePath(const core::Settings& settings) {
    for (const QString& named : {settings.stringForKey(core::keys::idevicerestorePath),
                                 qEnvironmentVariable("TARVEL_IDEVICERESTORE")}) {
        if (named.isEmpty())
            continue;
        // The tool runs in a working folder of its own: a relative name must not change meaning.
        const QString found = named.contains(QLatin1Char('/'))
                                  ? QFileInfo(named).absoluteFilePath()
                                  : QStandardPaths::findExecutable(named);
        return found.isEmpty() ? named : found;
    }
    return QStandardPaths::findExecutable(QStringLiteral("idevicerestore"));
}

restore::RestoreEngine& sharedEngine() {
    static const std::unique_ptr<restore::RestoreEngine> engine = [] {
        if (configurator::processEngine() == configurator::EngineKind::cfgutil)
            return std::unique_ptr<restore::RestoreEngine>(
                std::make_unique<CfgutilEngine>(ZMRConfigurator2Utility::sharedManager()));
        return makeIdevicerestore(core::Settings::shared());
    }();
    return *engine;
}

std::unique_ptr<restore::RestoreEngine> makeEngine(core::Settings& settings) {
    if (configurator::processEngine() == configurator::EngineKind::idevicerestore)
        return makeIdevicerestore(settings);
    ZMRConfigurator2Utility::Collaborators c = ZMRConfigurator2Utility::defaultCollaborators();
    c.settings = &settings;
    return std::make_unique<CfgutilEngine>(std::make_unique<ZMRConfigurator2Utility>(c));
}

}  // namespace engines
