#include "core/SettingsKeys.h"

#include <algorithm>
#include <array>

namespace core {
namespace {

using enum SettingType;

constexpr std::array kKeys{
    SettingKey{keys::showDebug, Boolean, "write debug-level lines to the log"},
    SettingKey{keys::LogFolderPath, String, "folder of the log file (tilde allowed)"},
    SettingKey{keys::LogFileName, String, "name of the log file"},
    SettingKey{keys::removeACCache, Boolean, "remove Apple Configurator's temporary cache before each restore"},
    SettingKey{keys::useCustomIPSW, Boolean, "restore the firmware file at customIPSWPath"},
    SettingKey{keys::customIPSWPath, String, "firmware file for restores"},
    SettingKey{keys::stayInFrontAfterDFUSecs, String, "seconds to keep Tarvel in front after a DFU command"},
    SettingKey{keys::acronameSkipDFUSDPMode, Boolean, "let hubs negotiate power delivery"},
    SettingKey{keys::shouldPlaySound, Boolean, "play a sound when restores complete"},
    SettingKey{keys::timeBetweenProcesses, String, "seconds between two restore starts"},
    SettingKey{keys::shouldUseEventScript, Boolean, "call the event script"},
    SettingKey{keys::eventScriptPath, String, "event script"},
    SettingKey{keys::checkForUpdates, Boolean, "check for a newer version at launch"},
    SettingKey{keys::showBetaFeatures, Boolean, "show beta features in the toolbar"},
    SettingKey{keys::versionCheckURL, String, "address of the version document"},
    SettingKey{keys::versionHistoryURL, String, "address of the update page"},
    SettingKey{keys::uniqueID, String, "installation identifier"},
    SettingKey{keys::acronameDelayAfterRebootAllPorts, Real, "seconds after rebooting all ports"},
    SettingKey{keys::acronameDelayAfterSettingPowerMode, Real, "seconds after setting a port's power mode"},
    SettingKey{keys::acronameRecoveryRebootDelay, Real, "seconds between two recovery reboots"},
    SettingKey{keys::acronameRecoveryRebootTimes, Integer, "number of recovery reboots (1 to 10)"},
    SettingKey{keys::acronameDelayAfterSendingDFUCommand, Real, "seconds after each DFU command"},
    SettingKey{keys::acronameDelayAfterPuttingAllPortInDFUMode, Real, "seconds after the whole DFU pass"},
    SettingKey{keys::recoverySleepBetweenReboots, Integer, "seconds between the local port's recovery reboots"},
    SettingKey{keys::acronameParallelHubs, Boolean, "work each hub's ports at the same time as the other hubs'"},
    SettingKey{keys::verifyTimeoutSeconds, Real, "seconds tarvel-cli waits for Macs to show the mode asked for"},
    SettingKey{keys::stationName, String, "this bench's name in restore records (the host name when empty)"},
    SettingKey{keys::recordsDatabaseURL, String, "postgresql:// address of the facility's records database"},
    SettingKey{keys::unattendedMaxRestores, Integer, "the most restores the unattended bench runs at once"},
    SettingKey{keys::metricsListenAddress, String, "ADDRESS:PORT or PORT of the metrics endpoint; empty is off"},
    SettingKey{keys::restoreEngine, String, "what restores Macs: auto, cfgutil or idevicerestore"},
    SettingKey{keys::idevicerestorePath, String, "the idevicerestore to run (found on PATH when empty)"},
    SettingKey{keys::firmwarePath, String, "IPSW file or extracted folder idevicerestore restores"},
    SettingKey{keys::maxConcurrentRestores, Integer, "the most restores running at once (0: no cap)"},
    SettingKey{keys::restoreRetries, Integer, "times a Mac the engine lost on its way is put back into DFU mode and restored again"},
};

}  // namespace

std::span<const SettingKey> settingKeys() { return kKeys; }

const SettingKey* findSettingKey(const QString& name) {
    const auto it = std::find_if(kKeys.begin(), kKeys.end(),
                                 [&](const SettingKey& key) { return name == QLatin1String(key.name); });
    return it == kKeys.end() ? nullptr : &*it;
}

std::span<const OptionsSheetDefault> optionsSheetDefaults() {
    static const std::array<OptionsSheetDefault, 9> table{{
        {keys::removeACCache, true},
        {keys::useCustomIPSW, false},
        {keys::customIPSWPath, QString()},
        {keys::stayInFrontAfterDFUSecs, QStringLiteral("15")},
        {keys::acronameSkipDFUSDPMode, true},
        {keys::shouldPlaySound, true},
        {keys::timeBetweenProcesses, QStringLiteral("3")},
        {keys::shouldUseEventScript, false},
        {keys::eventScriptPath, QString()},
    }};
    return table;
}

QString settingTypeName(SettingType type) {
    switch (type) {
        case Boolean:
            return QStringLiteral("bool");
        case Integer:
            return QStringLiteral("int");
        case Real:
            return QStringLiteral("float");
        case String:
            return QStringLiteral("string");
    }
    return {};
}

}  // namespace core
