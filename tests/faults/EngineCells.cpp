#include "FaultCells.h"

namespace faults {
namespace {

using testing_support::StationBuilder;

StationBuilder inDfuWithFault(const QByteArray& fault) {
    return StationBuilder().macState("dfu").macFields(1, 2, fault);
}

}  // namespace

// The idevicerestore engine on the simulated station: each way the engine fails a Mac, which of
// them a retry through the hub port mends, a cancel while the engine ignores SIGTERM, and the
// cap on restores at once.
QList<Cell> engineCells() {
    // Locals, not globals: the cells are built while the test program starts.
    const QString idevicerestore = "defaults write restoreEngine idevicerestore";
    const QStringList restoreAll = {"restore", "--all-dfu", "--json", "--history-json",
                                    "{history}"};
    return {
        {.name = "EngineRestoreClean",
         .station = StationBuilder().macState("dfu"),
         .before = {idevicerestore},
         .command = restoreAll,
         .said = {R"("progress":1)", "Restoring image"},
         .notSaid = {"retried after"}},
        {.name = "EngineUnknownDeviceTypeIsNotRetried",
         .station = inDfuWithFault(R"("engineFault": "unknownDeviceType")"),
         .before = {idevicerestore},
         .command = restoreAll,
         .exit = 1,
         .said = {R"("error":"Unable to discover device type")",
                  "idevicerestore (0x12): Unable to discover device type"},
         .notSaid = {"retried after"}},
        {.name = "EngineSigningRefusedIsNotRetried",
         .station = inDfuWithFault(R"("engineFault": "signingRefused")"),
         .before = {idevicerestore},
         .command = restoreAll,
         .exit = 1,
         .said = {"Unable to get SHSH blobs for this device"},
         .notSaid = {"retried after"}},
        {.name = "EngineVerificationErrorIsNotRetried",
         .station = inDfuWithFault(R"("restoreFailure": {"atProgress": 0.6, "status": 1,
                                   "message": "Status: Verification Error"})"),
         .before = {idevicerestore},
         .command = restoreAll,
         .exit = 1,
         .said = {R"("error":"Status: Verification Error")"},
         .notSaid = {"retried after"}},
        {.name = "EngineLostMacIsRetriedThroughItsHubPort",
         .station = inDfuWithFault(R"("engineFault": "restoreModeTimeout", "engineFaultTimes": 1)"),
         .before = {idevicerestore},
         .command = restoreAll,
         .said = {"retried after: Device failed to enter restore mode.", R"("progress":1)"},
         .macsEnd = {"12 booted"}},
        {.name = "EngineLostMacIsRetriedOnce",
         .station = inDfuWithFault(R"("engineFault": "restoreModeTimeout")"),
         .before = {idevicerestore},
         .command = restoreAll,
         .exit = 1,
         .said = {"retried after: Device failed to enter restore mode.",
                  R"("error":"Device failed to enter restore mode.")"},
         .logged = "0x12: retried after: Device failed to enter restore mode."},
        {.name = "EngineOldStyleErrorsOnStandardError",
         .station = inDfuWithFault(R"("engineFault": "signingRefused")")
                        .fields(R"("idevicerestore": {"errorStyle": "old"})"),
         .before = {idevicerestore},
         .command = {"restore-device", "0x12"},
         .exit = 1,
         .said = {"idevicerestore: Unable to get SHSH blobs for this device"}},
        // The engine waits up to 300 s for restore mode and ignores SIGTERM meanwhile: the
        // cancel still ends within the runner's grace.
        {.name = "EngineCtrlCWhileTheEngineIgnoresTerm",
         .station = inDfuWithFault(R"("engineFault": "ignoresTerm")"),
         .before = {idevicerestore},
         .command = {"restore-device", "0x12"},
         .interrupt = Interrupt::Sigint,
         .at = {"Waiting for restore mode"},
         .exit = 130,
         .said = {"Restore of 0x12 was cancelled (the tool ended with status 9)."},
         .boundSeconds = 30},
        {.name = "EngineFirmwareMissingStartsNothing",
         .station = StationBuilder().macState("dfu"),
         .before = {idevicerestore, "defaults write firmwarePath /nonexistent/firmware.ipsw"},
         .command = restoreAll,
         .exit = 1,
         .said = {"The specified path for the IPSW does not exist at /nonexistent/firmware.ipsw"},
         .notSaid = {"Preparing for restore"},
         .macsEnd = {"11 dfu", "12 dfu"}},
        {.name = "EngineCapHoldsStartsBack",
         .station = StationBuilder().macState("dfu"),
         .before = {idevicerestore, "defaults write maxConcurrentRestores -int 2"},
         .command = restoreAll,
         .said = {"Waiting for a restore to end", R"("progress":1)"}},
        {.name = "EngineListsFromTheRegistry",
         .station = StationBuilder().macState(1, 1, "dfu").macState(1, 2, "recovery"),
         .before = {idevicerestore},
         .command = {"devices", "--json"},
         .said = {R"("udid": "00008103-0000000000000011")", R"("productID": "0x1227")",
                  R"("inDFU": true)", R"("deviceType": "Macmini9,1")", R"("productID": "0x1281")",
                  R"("serialNumber": "AAAA000012")"}},
    };
}

}  // namespace faults
