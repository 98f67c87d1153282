#include "FaultCells.h"

namespace faults {
namespace {

QStringList with(const QStringList& command, const QStringList& more) {
    return command + more;
}

StationSpec inDfu(StationSpec spec = {}) {
    spec.macState = "dfu";
    return spec;
}

}  // namespace

QByteArray stationJson(const StationSpec& spec) {
    QByteArrayList hubs;
    for (int hub = 1; hub <= 2; ++hub) {
        QByteArrayList macs;
        for (int port = 1; port <= 5; ++port) {
            const QByteArray id = QByteArray::number(hub * 10 + port);
            QByteArray mac = R"({"port": )" + QByteArray::number(port) + R"(, "ecid": "0x)" + id +
                             R"(", "serialNumber": "AAAA0000)" + id + R"(", "state": ")" +
                             spec.macState + '"';
            if (hub == 1 && port == 2 && !spec.secondMacExtra.isEmpty())
                mac += ", " + spec.secondMacExtra;
            macs << mac + '}';
        }
        QByteArray entry = R"({"serial": "0x1C3B4A0)" + QByteArray::number(hub) +
                           R"(", "usbID": )" + QByteArray::number(hub);
        if (hub == 1) {
            entry += R"(, "faults": [)" + spec.firstHubFaults + ']';
            if (!spec.firstHubExtra.isEmpty())
                entry += ", " + spec.firstHubExtra;
        }
        hubs << entry + R"(, "macs": [)" + macs.join(',') + "]}";
    }
    QByteArray top = R"("timing": {"restoreSeconds": 30}, "hubs": [)" + hubs.join(',') + ']';
    if (!spec.topExtra.isEmpty())
        top += ", " + spec.topExtra;
    return '{' + top + '}';
}

QList<Cell> faultCells() {
    // Built here, not at file scope: the cells are read while tests register, before other
    // files' statics are sure to exist.
    const QStringList portsJson = {"--all", "--json"};
    // Nothing listens on the discard port of this machine.
    const QString unreachableFacility =
        "defaults write recordsDatabaseURL postgresql://tarvel@127.0.0.1:9/records";
    const QStringList restoreAll = {"restore", "--all-dfu", "--json", "--history-json",
                                    "{history}"};
    return {
        // The four sequences, each against a clean station, transient storms, hard errors, a Mac
        // that ignores messages, a hub that goes, the simulator killed and Ctrl-C.
        {.name = "DfuClean", .command = with({"dfu"}, portsJson)},
        {.name = "DfuTransientStorm",
         .station = {.firstHubFaults =
                         R"({"call": "port.setEnabled", "results": [3, 3, 0], "repeat": true},
                            {"call": "pd.setUEIBytes", "results": [3, 0], "repeat": true})"},
         .command = with({"dfu"}, portsJson),
         .logged = "answered busy (result 3), trying again"},
        {.name = "DfuHardErrorOnAMessage",
         .station =
             {.firstHubFaults =
                  R"({"call": "pd.setUEIBytes", "index": 3, "results": [6], "repeat": true})"},
         .command = with({"dfu"}, portsJson),
         .exit = 1,
         .said = "partly done: 1C3B4A01:4 (power-cycled, DFU message not sent)",
         .logged = "dfu: port failed: 1C3B4A01:3 (DFU message, result 6)"},
        {.name = "DfuInLanesHardErrorOnAMessage",
         .station =
             {.firstHubFaults =
                  R"({"call": "pd.setUEIBytes", "index": 3, "results": [6], "repeat": true})"},
         .command = with({"--parallel", "dfu"}, portsJson),
         .exit = 1,
         .logged = "dfu: port failed: 1C3B4A01:3 (DFU message, result 6)"},
        {.name = "DfuPortThatCannotBeEnabledAgain",
         .station = {.firstHubFaults =
                         R"({"call": "port.setEnabled", "index": 2, "results": [0, 6, 6]})"},
         .command = with({"dfu"}, portsJson),
         .exit = 1,
         .said = "left disabled: 1C3B4A01:2",
         .logged = "Port 1C3B4A01:2 is left disabled"},
        {.name = "DfuPortDisabledBeforehand",
         .before = {"port disable 1C3B4A01:2"},
         .command = with({"dfu"}, portsJson),
         .said = R"("wasDisabled":["1C3B4A01:2"])",
         .logged = "Port 1C3B4A01:2 reads disabled"},
        {.name = "DfuMacIgnoresTheMessage",
         .station = {.secondMacExtra = R"("ignoresDFU": true)"},
         .command = with({"dfu"}, portsJson),
         .exit = 1,
         .said = "1C3B4A01:2: Mac still booted after 30 s"},
        {.name = "DfuHubVanishes",
         .station = {.firstHubExtra = R"("vanishAfter": 60, "returnAfter": 5000)"},
         .command = with({"dfu"}, portsJson),
         .exit = 1,
         .said = "hub 1C3B4A01 went away"},
        {.name = "DfuHubVanishesAndReturns",
         .station = {.firstHubExtra = R"("vanishAfter": 40, "returnAfter": 5)"},
         .command = with({"dfu"}, portsJson),
         .exit = 1,
         .said = "hub 1C3B4A01 went away"},
        {.name = "DfuSimulatorKilled",
         .command = with({"dfu"}, portsJson),
         .interrupt = Interrupt::KillSimulator,
         .at = R"("step":"DFU message")",
         .exit = 1,
         .said = "lost the simulator",
         .boundSeconds = 15},
        {.name = "DfuCtrlC",
         .command = with({"dfu"}, portsJson),
         .interrupt = Interrupt::Sigint,
         .at = R"("step":"DFU message")",
         .exit = 130,
         .said = "stopped by Ctrl-C"},
        {.name = "DfuKilledBetweenDisableAndEnableThenRun",
         .command = with({"dfu"}, portsJson),
         .interrupt = Interrupt::Sigkill,
         .at = R"("step":"power mode")",
         .rerun = with({"dfu"}, portsJson),
         .said = R"("wasDisabled":["1C3B4A01:1"])"},
        {.name = "RestartClean", .command = with({"restart"}, portsJson)},
        {.name = "RestartHardError",
         .station =
             {.firstHubFaults =
                  R"({"call": "pd.setUEIBytes", "index": 2, "results": [6], "repeat": true})"},
         .command = with({"restart"}, portsJson),
         .exit = 1,
         .logged = "restart: port failed: 1C3B4A01:2 (reboot, result 6)"},
        {.name = "RecoveryClean", .command = with({"recovery"}, portsJson)},
        {.name = "RecoveryCtrlC",
         .command = with({"recovery"}, portsJson),
         .interrupt = Interrupt::Sigint,
         .at = R"("step":"settling")",
         .exit = 130,
         .said = "stopped by Ctrl-C"},
        {.name = "PowerModeDisableFails",
         .station =
             {.firstHubFaults =
                  R"({"call": "port.setEnabled", "index": 3, "results": [6], "repeat": true})"},
         .command = with({"power-mode", "pd"}, portsJson),
         .exit = 1,
         .logged = "power-mode: port failed: 1C3B4A01:3 (disable, result 6)"},
        {.name = "PowerModeCtrlCBetweenDisableAndEnable",
         .command = with({"power-mode", "pd"}, portsJson),
         .interrupt = Interrupt::Sigint,
         .at = R"("step":"power mode")",
         .exit = 130,
         .said = "stopped by Ctrl-C"},
        // One port's messages: refused where they cannot arrive, checked where they can.
        {.name = "PortDfuNotInPowerDelivery",
         .command = {"port", "dfu", "1C3B4A01:1"},
         .exit = 1,
         .said = "not in power-delivery mode"},
        {.name = "PortDfuOnADisabledPort",
         .before = {"port disable 1C3B4A01:1"},
         .command = {"port", "dfu", "1C3B4A01:1"},
         .exit = 1,
         .said = "the port is disabled"},
        {.name = "PortRebootWithNothingConnected",
         .command = {"port", "reboot", "1C3B4A01:6"},
         .exit = 1,
         .said = "nothing is connected to the port"},
        {.name = "PortDfuForcedOnAPortThatCannotCarryIt",
         .command = {"port", "dfu", "--force", "1C3B4A01:1"},
         .exit = 1,
         .said = "Mac still booted"},
        {.name = "PortDfuInPowerDelivery",
         .before = {"power-mode pd 1C3B4A01:1"},
         .command = {"port", "dfu", "1C3B4A01:1"},
         .said = "dfu 1C3B4A01:1: the Mac is in DFU mode"},
        {.name = "PortDfuIgnoredByTheMac",
         .station = {.secondMacExtra = R"("ignoresDFU": true)"},
         .before = {"power-mode pd 1C3B4A01:2"},
         .command = {"port", "dfu", "1C3B4A01:2"},
         .exit = 1,
         .said = "Mac still booted"},
        // Listings and restores.
        {.name = "DevicesGarbled",
         .station = {.topExtra = R"("cfgutil": {"garbledList": true})"},
         .command = {"devices"},
         .exit = 1,
         .said = "could not be read"},
        {.name = "RestoreClean", .station = inDfu(), .command = restoreAll},
        {.name = "RestoreOneFails",
         .station = inDfu({.secondMacExtra =
                               R"("restoreFailure": {"atProgress": 0.5, "status": 21,
                                   "message": "The restore failed.", "endState": "recovery"})"}),
         .command = restoreAll,
         .exit = 1,
         .said = R"("error":"The restore failed.")"},
        {.name = "RestoreWithGarbledProgress",
         .station = inDfu({.secondMacExtra = R"("garbledRestoreOutput": true)"}),
         .command = restoreAll,
         .said = "warning: restore of 0x12"},
        {.name = "RestoreCtrlCWhenAStartIsDue",
         .station = inDfu(),
         .command = restoreAll,
         .interrupt = Interrupt::Sigint,
         .at = "Waiting to start next process",
         .exit = 130},
        {.name = "RestoreCtrlCTwice",
         .station = inDfu(),
         .command = restoreAll,
         .interrupt = Interrupt::DoubleSigint,
         .at = R"("event":"device")",
         .exit = 130},
        {.name = "RestoreSimulatorKilled",
         .station = inDfu(),
         .command = restoreAll,
         .interrupt = Interrupt::KillSimulator,
         .at = "Waiting to start next process",
         .exit = 1,
         .said = "the simulator closed its socket; the batch was abandoned"},
        // The unattended bench: Ctrl-C cancels the restores under way and says so in its
        // status; a simulator that dies under it ends the day as a failure.
        {.name = "AutoCtrlCWhileRestoring",
         .station = inDfu(),
         .command = {"auto", "--restore", "--json"},
         .interrupt = Interrupt::Sigint,
         .at = R"("state":"restoring")",
         .exit = 130,
         .said = R"("status":130)"},
        {.name = "AutoSimulatorKilled",
         .station = inDfu(),
         .command = {"auto", "--restore", "--json"},
         .interrupt = Interrupt::KillSimulator,
         .at = R"("state":"restoring")",
         .exit = 1,
         .said = "auto: the simulator closed its socket"},
        // A facility database that cannot be reached neither slows nor fails a restore; its
        // records wait on the bench, and a sync says how many and fails.
        {.name = "RestoreWithTheFacilityDatabaseGone",
         .station = inDfu(),
         .before = {unreachableFacility},
         .command = restoreAll},
        {.name = "RecordsSyncWithTheFacilityDatabaseGone",
         .station = inDfu(),
         .before = {unreachableFacility, "restore --all-dfu"},
         .command = {"records", "sync"},
         .exit = 1,
         .said = "; 10 waiting."},
        // The host's own DFU port, through the simulated helper (on a bus tarvel-cli starts
        // itself when there is no session bus).
        {.name = "LocalDfuWithNothingPlugged",
         .command = {"local", "dfu"},
         .exit = 1,
         .said = "Error putting device in DFU mode. Please verify the target device is plugged "
                 "into the DFU port on this Mac with a USB-C cable. (DFU mode error: 3)"},
        {.name = "LocalAutoSimulatorKilled",
         .station = {.topExtra = R"("localDFU": {"ecid": "0x1A0001", "serialNumber": "LOCAL1"})"},
         .command = {"local", "auto", "--restore"},
         .interrupt = Interrupt::KillSimulator,
         .at = "Ctrl-C stops.",
         .exit = 1,
         .said = "local auto: the simulator closed its socket",
         .boundSeconds = 15},
        // The bus: a watch that can hear nothing more ends; one that follows the simulator
        // across a restart sees the Macs still there.
        {.name = "UsbWatchSimulatorKilled",
         .command = {"usb", "watch"},
         .interrupt = Interrupt::KillSimulator,
         .at = "deviceAdded",
         .exit = 1,
         .said = "the simulator closed its socket",
         .boundSeconds = 10},
        {.name = "UsbWatchAcrossASimulatorRestart",
         .command = {"usb", "watch", "--follow", "--json"},
         .interrupt = Interrupt::RestartSimulator,
         .said = "is back",
         .notSaid = "deviceRemoved"},
    };
}

}  // namespace faults
