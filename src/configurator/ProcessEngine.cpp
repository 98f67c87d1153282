#include "configurator/ProcessEngine.h"

#include "configurator/RegistryListing.h"
#include "configurator/ZMRConfigurator2Utility.h"
#include "core/Dispatch.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"
#include "core/SimulatorAddress.h"
#include "usb/MacModelNames.h"
#include "usb/UsbRegistry.h"

namespace configurator {

bool simulatedOnLinux() {
#ifdef Q_OS_LINUX
    return core::simulatorSocketFromEnvironment().has_value();
#else
    return false;
#endif
}

EngineKind chooseEngine(const QString& setting, bool cfgutilExists, bool simulatedOnLinux) {
    if (setting == QLatin1String("cfgutil"))
        return EngineKind::cfgutil;
    if (setting == QLatin1String("idevicerestore"))
        return EngineKind::idevicerestore;
    return cfgutilExists && !simulatedOnLinux ? EngineKind::cfgutil : EngineKind::idevicerestore;
}

EngineKind processEngine() {
    return chooseEngine(core::Settings::shared().stringForKey(core::keys::restoreEngine),
                        ZMRConfigurator2Utility::sharedManager().isAC2Installed(),
                        simulatedOnLinux());
}

QString engineName(EngineKind kind) {
    return kind == EngineKind::cfgutil ? QStringLiteral("cfgutil")
                                       : QStringLiteral("idevicerestore");
}

void listMacs(std::function<void(const DeviceList& devices)> callback) {
    if (processEngine() == EngineKind::cfgutil) {
        ZMRConfigurator2Utility::sharedManager().attachedDevicesWithCallback(std::move(callback));
        return;
    }
    dispatch::main([callback = std::move(callback)] {
        const auto devices = usb::UsbRegistry::shared().devices();
        callback(devices ? listMacsInRegistry(*devices, usb::MacModelNames::shipped())
                         : DeviceList());
    });
}

}  // namespace configurator
