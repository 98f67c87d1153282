#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <optional>
#include <vector>

namespace sim {

enum class MacState { Off, Booted, Dfu, Recovery, Restoring };

// What a restoring Mac looks like on USB: it starts in DFU mode, comes back as the recovery-mode
// boot loader the tool sends it, then as the restore system that writes the disk.
enum class RestoreStage { Dfu, Recovery, RestoreOS };

QString macStateName(MacState state);
std::optional<MacState> macStateFromName(const QString& name);

struct RestoreFailure {
    double atProgress = 0.5;
    int status = 21;
    QString message;
    MacState endState = MacState::Recovery;
};

struct MacConfig {
    int port = 0;  // hub port 0-7; 0 also for the Mac on the host's DFU port
    std::uint64_t ecid = 0;
    QString serialNumber;
    QString deviceType;
    QString name;
    MacState state = MacState::Booted;
    bool ignoresDfu = false;
    bool garbledRestoreOutput = false;
    // How the idevicerestore stand-in fails this Mac on its own side; empty when it does not.
    QString engineFault;
    int engineFaultTimes = -1;  // restores the fault spoils; -1: every one
    std::optional<RestoreFailure> restoreFailure;
};

// One Mac of a sequence a technician plugs into one port (a hub port or the host's DFU port) one
// after another.
struct MacPlug {
    MacConfig mac;
    double plugAfter = 0.0;  // seconds after the previous Mac left the port (the first: the start)
    std::optional<double> unplugAfter;         // seconds after it was plugged in
    std::optional<double> unplugAfterRestore;  // seconds after its restore succeeded
    std::optional<double> unplugAtProgress;    // when its restore reports this progress (0-1)
};

// Result codes handed out, one a call, instead of the normal answer.
struct FaultConfig {
    QString call;    // "port.setEnabled", "pd.setUEIBytes", "system.getVersion", "connect", ...
    int index = -1;  // entity index, or -1 for every entity
    std::vector<std::uint32_t> results;
    bool repeat = false;
};

struct HubConfig {
    std::uint32_t serial = 0;
    std::uint32_t usbId = 0;
    std::uint32_t firmware = 0;  // packed: major bits 28-31, minor 24-27, patch 0-23
    std::uint8_t inputPowerSource = 7;
    std::uint32_t powerLimit = 100000;     // mW, what the input supplies
    std::uint32_t powerLimitMax = 100000;  // mW, the configurable ceiling
    std::optional<double> vanishAfter;
    std::optional<double> returnAfter;
    std::vector<FaultConfig> faults;
    std::vector<MacConfig> macs;
    // Macs plugged into ports over time; a port's entries, in file order, are its sequence.
    std::vector<MacPlug> plugs;
};

struct Timing {
    double bootSeconds = 6.0;
    double dfuSeconds = 2.0;
    double hubResetSeconds = 3.0;
    double restoreSeconds = 180.0;    // a whole restore, from start to the last step
    double reenumerateSeconds = 2.0;  // off the bus between two stages of a restore
    int rebootsForRecovery = 3;
    // How long a Mac on a freshly enabled power-delivery port takes to agree a contract; vendor
    // messages before that never reach it.
    double pdContractSeconds = 2.0;
    // Between a message and the Mac dropping off the bus while it resets.
    double leaveBusSeconds = 0.5;
    // One USB round trip to the hub's controller.
    double stemLatencySeconds = 0.001;
};


// Which build of idevicerestore the stand-in plays, and so how it prints its errors.
struct IdevicerestoreOptions {
    // "new": bare lines on stdout; "old": "ERROR: " lines on stderr.
    QString errorStyle = QStringLiteral("new");
    QString version = QStringLiteral("1.0.0-270-g405fcd1");
};

struct StationConfig {
    QString source;  // the file it came from, or "<default>"
    Timing timing;
    bool garbledList = false;
    IdevicerestoreOptions idevicerestore;
    std::vector<HubConfig> hubs;
    std::optional<MacConfig> localDfu;           // one Mac, plugged in from the start
    std::vector<MacPlug> localDfuSequence;  // or Macs plugged in one after another
};

struct StationLoad {
    // Enough to fix a file by; a hostile one could otherwise fill the terminal and the memory.
    static constexpr qsizetype maxErrors = 20;
    // Far above any real station, far below what would strain the simulator.
    static constexpr qint64 maxFileBytes = 16 * 1024 * 1024;

    std::optional<StationConfig> station;
    QStringList errors;            // "file: field: reason", the first maxErrors of them
    qsizetype unlistedErrors = 0;  // the ones after those
};

// Parses and validates a station; every problem found is counted, not just the first.
StationLoad parseStation(const QByteArray& json, const QString& fileName);
StationLoad loadStationFile(const QString& path);
StationConfig defaultStation();

std::uint32_t packVersion(unsigned major, unsigned minor, unsigned patch);
QString versionText(std::uint32_t packed);

}  // namespace sim
