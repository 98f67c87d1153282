#pragma once

#include <QString>
#include <QVariant>

#include <span>

namespace core {

enum class SettingType { Boolean, Integer, Real, String };

// One key of the preferences domain: its stored type and whether the user edits it in the
// options sheet.
struct SettingKey {
    const char* name;
    SettingType type;
    const char* meaning;
};

// Every key the application reads or writes.
std::span<const SettingKey> settingKeys();
const SettingKey* findSettingKey(const QString& name);

// The nine keys the options sheet edits, with the values it shows when the user never set them.
struct OptionsSheetDefault {
    const char* key;
    QVariant value;
};
std::span<const OptionsSheetDefault> optionsSheetDefaults();

QString settingTypeName(SettingType type);

namespace keys {
inline constexpr auto showDebug = "showDebug";
inline constexpr auto LogFolderPath = "LogFolderPath";
inline constexpr auto LogFileName = "LogFileName";
inline constexpr auto removeACCache = "removeACCache";
inline constexpr auto useCustomIPSW = "useCustomIPSW";
inline constexpr auto customIPSWPath = "customIPSWPath";
inline constexpr auto stayInFrontAfterDFUSecs = "stayInFrontAfterDFUSecs";
inline constexpr auto acronameSkipDFUSDPMode = "acronameSkipDFUSDPMode";
inline constexpr auto shouldPlaySound = "shouldPlaySound";
inline constexpr auto timeBetweenProcesses = "timeBetweenProcesses";
inline constexpr auto shouldUseEventScript = "shouldUseEventScript";
inline constexpr auto eventScriptPath = "eventScriptPath";
inline constexpr auto checkForUpdates = "checkForUpdates";
inline constexpr auto showBetaFeatures = "showBetaFeatures";
inline constexpr auto versionCheckURL = "versionCheckURL";
inline constexpr auto versionHistoryURL = "versionHistoryURL";
inline constexpr auto uniqueID = "uniqueID";
inline constexpr auto acronameDelayAfterRebootAllPorts = "acronameDelayAfterRebootAllPorts";
inline constexpr auto acronameDelayAfterSettingPowerMode = "acronameDelayAfterSettingPowerMode";
inline constexpr auto acronameRecoveryRebootDelay = "acronameRecoveryRebootDelay";
inline constexpr auto acronameRecoveryRebootTimes = "acronameRecoveryRebootTimes";
inline constexpr auto acronameDelayAfterSendingDFUCommand = "acronameDelayAfterSendingDFUCommand";
inline constexpr auto acronameDelayAfterPuttingAllPortInDFUMode =
    "acronameDelayAfterPuttingAllPortInDFUMode";
inline constexpr auto recoverySleepBetweenReboots = "recoverySleepBetweenReboots";
inline constexpr auto verifyTimeoutSeconds = "verifyTimeoutSeconds";
inline constexpr auto acronameParallelHubs = "acronameParallelHubs";
inline constexpr auto stationName = "stationName";
inline constexpr auto recordsDatabaseURL = "recordsDatabaseURL";
inline constexpr auto unattendedMaxRestores = "unattendedMaxRestores";
inline constexpr auto metricsListenAddress = "metricsListenAddress";
inline constexpr auto restoreEngine = "restoreEngine";
inline constexpr auto idevicerestorePath = "idevicerestorePath";
inline constexpr auto firmwarePath = "firmwarePath";
inline constexpr auto maxConcurrentRestores = "maxConcurrentRestores";
inline constexpr auto restoreRetries = "restoreRetries";
}  // namespace keys

}  // namespace core
