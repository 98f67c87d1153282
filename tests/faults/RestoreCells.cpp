#include "FaultCells.h"

namespace faults {
namespace {

using testing_support::StationBuilder;

StationBuilder inDfu() {
    return StationBuilder().macState("dfu");
}

// Restores that outlast a loaded machine, so an interrupt lands while they run.
StationBuilder inDfuRestoringLong() {
    return inDfu().timing("restoreSeconds", 600);
}

QList<Cell> listingAndRestoreCells() {
    // Nothing listens on the discard port of this machine.
    const QString unreachableFacility =
        "defaults write recordsDatabaseURL postgresql://tarvel@127.0.0.1:9/records";
    const QStringList restoreAll = {"restore", "--all-dfu", "--json", "--history-json",
                                    "{history}"};
    const QString notJson = "a line of the tool's progress is not JSON: \\x1b[2K\\x0drestore: ";
    return {
        // Listings and restores.
        {.name = "DevicesGarbled",
         .station = StationBuilder().fields(R"("cfgutil": {"garbledList": true})"),
         .command = {"devices"},
         .exit = 1,
         .said = {"could not be read"}},
        // Booted Macs are invisible to the tool; one in DFU mode shows with its boot ROM's facts.
        {.name = "DevicesInDfu",
         .station = StationBuilder().macState(1, 1, "dfu"),
         .command = {"devices", "--json"},
         .said = {R"("udid": "00008103-0000000000000011")", R"("locationID": "0x1110000")",
                  R"("productID": "0x1227")", R"("serialNumber": "")", R"("inDFU": true)",
                  R"("deviceType": "Macmini9,1")"}},
        // Seven hubs of Macs with the long names technicians give them: a listing of some 18 KiB,
        // which the tool writes in more than one go.
        {.name = "DevicesOnAFullSevenHubBench",
         .station = StationBuilder(7).macState("dfu").macNames(
             "Classroom 214 — MacBook Pro (14-inch, 2021) — reimaged after the last lesson — "
             "asset tag on the underside, charger in the drawer below"),
         .command = {"devices", "--json"},
         .said = {"reimaged after the last lesson — asset tag on the underside, charger in the "
                  "drawer below — 1C3B4A07:5"}},
        {.name = "RestoreClean",
         .station = inDfu(),
         .command = restoreAll,
         .said = {R"({"devices":[)", R"("progress":1)"}},
        {.name = "RestoreCleanInPlainText",
         .station = inDfu(),
         .command = {"restore", "--all-dfu"},
         .said = {"History:", "0x15  "}},
        {.name = "RestoreOneFails",
         .station = inDfu().macFields(1, 2, R"("restoreFailure": {"atProgress": 0.5, "status": 21,
                                   "message": "The restore failed.", "endState": "recovery"})"),
         .command = restoreAll,
         .exit = 1,
         .said = {R"("error":"The restore failed.")", "cfgutil (0x12): The restore failed.\n",
                  "There was an error restoring the device with status 1. Please check log for "
                  "error message. You can also try restoring with Apple Configurator to help "
                  "identify issues."},
         .logged = "Restore of 12 failed with status 1: The restore failed."},
        {.name = "RestoreWithGarbledProgress",
         .station = inDfu().macFields(1, 2, R"("garbledRestoreOutput": true)"),
         .command = {"restore", "--all-dfu", "--history-json", "{history}"},
         .said = {"warning: restore of 0x12: " + notJson}},
        {.name = "RestoreCtrlCWhenAStartIsDue",
         .station = inDfu(),
         .command = restoreAll,
         .interrupt = Interrupt::Sigint,
         .at = {"Waiting to start next process"},
         .exit = 130},
        {.name = "RestoreCtrlCTwice",
         .station = inDfu(),
         .command = restoreAll,
         .interrupt = Interrupt::DoubleSigint,
         .at = {R"("event":"device")"},
         .exit = 130},
        {.name = "RestoreSimulatorKilled",
         .station = inDfu(),
         .command = restoreAll,
         .interrupt = Interrupt::KillSimulator,
         .at = {"Waiting to start next process"},
         .exit = 1,
         .said = {"the simulator closed its socket; the batch was abandoned"}},
        // Killed in the middle of a batch: every outcome it had told is in the records, whole.
        {.name = "RestoreKilledMidBatchThenVerify",
         .station = inDfu().timing("restoreSeconds", 6),
         .command = {"restore", "--all-dfu", "--json"},
         .interrupt = Interrupt::Sigkill,
         .at = {R"("status":"Successful")"},
         .rerun = {"records", "verify"},
         .said = {"intact: "}},
        {.name = "RestoreOneMac",
         .station = inDfu(),
         .command = {"restore-device", "0x11"},
         .said = {"100% Restore complete", "Restore of 0x11 completed."}},
        {.name = "RestoreOneMacThatFails",
         .station = inDfu().macFields(1, 2, R"("restoreFailure": {"atProgress": 0.05,
                                   "status": 21, "message": "libusbrestore error:21"})"),
         .command = {"restore-device", "0x12"},
         .exit = 1,
         .said = {"with status 1."}},
        {.name = "RestoreOneMacCtrlC",
         .station = inDfuRestoringLong(),
         .command = {"restore-device", "11"},
         .interrupt = Interrupt::Sigint,
         .at = {"Preparing restore"},
         .exit = 130,
         .said = {"Restore of 0x11 was cancelled (the tool ended with status 15)."},
         .notSaid = {"Restore complete"},
         .macsEnd = {"11 dfu"}},
        {.name = "RestoreOneMacWithGarbledProgress",
         .station = inDfu().macFields(1, 2, R"("garbledRestoreOutput": true)"),
         .command = {"restore-device", "0x12"},
         .said = {"warning: restore of 0x12: " + notJson}},
        {.name = "RestoreOneMacThatIsNotThere",
         .station = inDfu(),
         .command = {"restore-device", "0x1234"},
         .exit = 1},
        {.name = "CacheClear",
         .command = {"cache", "clear"},
         .said = {"Apple Configurator's temporary files were removed.\n"}},
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
         .said = {"; 10 waiting."}},
    };
}

QList<Cell> benchCells() {
    const QByteArray threeLocalMacs = R"("localDFU": [
        {"ecid": "0x1A0001", "serialNumber": "LOCAL1", "unplugAfterRestore": 100},
        {"ecid": "0x1A0002", "serialNumber": "LOCAL2", "plugAfter": 50, "unplugAfterRestore": 100},
        {"ecid": "0x1A0003", "serialNumber": "LOCAL3", "plugAfter": 50}])";
    return {
        // The unattended bench: a port that fails leaves the others alone; Ctrl-C cancels the
        // restores under way and says so in its status; a simulator that dies under it ends the
        // day as a failure.
        {.name = "AutoHardErrorOnOnePort",
         .station = StationBuilder().hubFaults(1, hardErrorOnMessage(2)).macState(1, 3, "dfu"),
         .command = {"auto", "--ports", "1C3B4A01:1", "1C3B4A01:2", "1C3B4A01:3"},
         .interrupt = Interrupt::Sigint,
         // Ports run side by side: the interrupt waits for the failure and both ends.
         .at = {"1C3B4A01:2 - failed", "1C3B4A01:1 - done", "1C3B4A01:3 - done"},
         .exit = 1,
         .said = {"1C3B4A01:1 - DFU", "1C3B4A01:1 - done", "1C3B4A01:3 - done",
                  "1C3B4A01:2 - failed (DFU sequence: DFU message, result 6)",
                  "auto: restored 0 · failed 1 · needs attention 0"},
         .notSaid = {"1C3B4A01:3 - DFU", "1C3B4A01:4"}},
        {.name = "AutoCtrlCWhileRestoring",
         .station = inDfuRestoringLong(),
         .command = {"auto", "--restore", "--json"},
         .interrupt = Interrupt::Sigint,
         .at = {R"("state":"restoring")"},
         .exit = 130,
         .said = {R"("status":130)", R"("underWay":0)", R"("message":"Restore Cancelled")"}},
        {.name = "AutoSimulatorKilled",
         .station = inDfu(),
         .command = {"auto", "--restore", "--json"},
         .interrupt = Interrupt::KillSimulator,
         .at = {R"("state":"restoring")"},
         .exit = 1,
         .said = {"auto: the simulator closed its socket"}},
        // The host's own DFU port, through the simulated helper: on the desktop's session bus,
        // or on one tarvel-cli brings itself where there is none.
        {.name = "LocalDfu",
         .station = StationBuilder().fields(
             R"("localDFU": {"ecid": "0x1A0001", "serialNumber": "LOCAL1"})"),
         .command = {"local", "dfu"},
         .said = {"The Mac on the DFU port is entering DFU mode.\n"},
         .macsEnd = {"1A0001 dfu"}},
        {.name = "LocalDfuOnTheSessionBus",
         .station = StationBuilder().fields(
             R"("localDFU": {"ecid": "0x1A0001", "serialNumber": "LOCAL1"})"),
         .command = {"local", "dfu"},
         .said = {"The Mac on the DFU port is entering DFU mode.\n"},
         .macsEnd = {"1A0001 dfu"},
         .sessionBus = true},
        {.name = "LocalHelperStatus",
         .command = {"local", "helper", "status"},
         .said = {"installed: yes\nversion: 100 (expected 100)\n"}},
        {.name = "LocalDfuWithNothingPlugged",
         .command = {"local", "dfu"},
         .exit = 1,
         .said = {"Error putting device in DFU mode. Please verify the target device is plugged "
                  "into the DFU port on this Mac with a USB-C cable. (DFU mode error: 3)"}},
        {.name = "LocalAutoRestoresMacsPluggedInOneAfterAnother",
         .station = StationBuilder()
                        .timing("restoreSeconds", 20)
                        .timing("bootSeconds", 6)
                        .timing("dfuSeconds", 2)
                        .timing("reenumerateSeconds", 1)
                        .fields(threeLocalMacs),
         .command = {"local", "auto", "--restore"},
         .interrupt = Interrupt::Sigint,
         .at = {"(3 restored so far)"},
         .said = {"restored 0x1A0001 (1 restored so far)", "restored 0x1A0002 (2 restored so far)",
                  "3 restored, 0 failed, 0 cancelled", "device unplugged. setting to check"},
         .boundSeconds = 60},
        {.name = "LocalAutoSimulatorKilled",
         .station = StationBuilder().fields(
             R"("localDFU": {"ecid": "0x1A0001", "serialNumber": "LOCAL1"})"),
         .command = {"local", "auto", "--restore"},
         .interrupt = Interrupt::KillSimulator,
         .at = {"Ctrl-C stops."},
         .exit = 1,
         .said = {"local auto: the simulator closed its socket"},
         .boundSeconds = 15},
        // The bus: a watch that can hear nothing more ends; one that follows the simulator
        // across a restart sees the Macs still there, and hears the bus again.
        {.name = "UsbWatchSimulatorKilled",
         .command = {"usb", "watch"},
         .interrupt = Interrupt::KillSimulator,
         .at = {"deviceAdded"},
         .exit = 1,
         .said = {"the simulator closed its socket"},
         .boundSeconds = 10},
        {.name = "UsbWatchAcrossASimulatorRestart",
         .command = {"usb", "watch", "--follow", "--json"},
         .interrupt = Interrupt::RestartSimulator,
         .said = {"the simulator closed its socket; trying again every second",
                  "is back; watching again"},
         .notSaid = {"deviceRemoved"}},
    };
}

}  // namespace

QList<Cell> restoreCells() {
    return listingAndRestoreCells() + benchCells();
}

}  // namespace faults
