#include "FaultCells.h"

namespace faults {
namespace {

using testing_support::StationBuilder;

QStringList with(const QStringList& command, const QStringList& more) {
    return command + more;
}

QList<Cell> sequenceCells() {
    const QStringList portsJson = {"--all", "--json"};
    return {
        // The four sequences, each against a clean station, transient storms, hard errors, a Mac
        // that ignores messages, a hub that goes, the simulator killed and Ctrl-C.
        {.name = "DfuClean", .command = with({"dfu"}, portsJson)},
        {.name = "DfuCleanInPlainText",
         .command = {"dfu", "--all"},
         .said = {"Putting devices into DFU mode (setting power role)\n",
                  "  port 3 of 10 · 1C3B4A01:3 · settling 3 s\n", "  1C3B4A02:5 done\n",
                  "Checking the Macs: 10 of 10 in DFU mode\ndfu: 10 of 10 ports done\n"}},
        {.name = "DfuTransientStorm",
         .station = StationBuilder().hubFaults(
             1, R"({"call": "port.setEnabled", "results": [3, 3, 0], "repeat": true},
                   {"call": "pd.setUEIBytes", "results": [3, 0], "repeat": true})"),
         .command = with({"dfu"}, portsJson),
         .logged = "answered busy (result 3), trying again"},
        {.name = "DfuHardErrorOnAMessage",
         .station = StationBuilder().hubFaults(1, hardErrorOnMessage(3)),
         .command = with({"dfu"}, portsJson),
         .exit = 1,
         .said = {"tarvel-cli: dfu: 2 of 10 ports done; failed: 1C3B4A01:3 (DFU message, result "
                  "6); partly done: 1C3B4A01:4 (power-cycled, DFU message not sent), 1C3B4A01:5 "
                  "(power-cycled, DFU message not sent), 1C3B4A02:1 (power-cycled, DFU message "
                  "not sent), 1C3B4A02:2 (power-cycled, DFU message not sent), 1C3B4A02:3 "
                  "(power-cycled, DFU message not sent), 1C3B4A02:4 (power-cycled, DFU message "
                  "not sent), 1C3B4A02:5 (power-cycled, DFU message not sent)\n"},
         .logged = "dfu: port failed: 1C3B4A01:3 (DFU message, result 6)"},
        {.name = "DfuInLanesHardErrorOnAMessage",
         .station = StationBuilder().hubFaults(1, hardErrorOnMessage(3)),
         .command = with({"--parallel", "dfu"}, portsJson),
         .exit = 1,
         .logged = "dfu: port failed: 1C3B4A01:3 (DFU message, result 6)"},
        {.name = "DfuInLanesOnSevenHubs",
         .station = StationBuilder(7),
         .command = with({"--parallel", "dfu"}, portsJson),
         .said = {R"("summary":"35 of 35 ports done")"}},
        {.name = "DfuPortThatCannotBeEnabledAgain",
         .station = StationBuilder().hubFaults(
             1, R"({"call": "port.setEnabled", "index": 2, "results": [0, 6, 6]})"),
         .command = with({"dfu"}, portsJson),
         .exit = 1,
         .said = {"left disabled: 1C3B4A01:2"},
         .logged = "Port 1C3B4A01:2 is left disabled"},
        {.name = "DfuPortDisabledBeforehand",
         .before = {"port disable 1C3B4A01:2"},
         .command = with({"dfu"}, portsJson),
         .said = {R"("wasDisabled":["1C3B4A01:2"])"},
         .logged = "Port 1C3B4A01:2 reads disabled"},
        // The check afterwards waits as long as the preference says, and no longer.
        {.name = "DfuMacIgnoresTheMessage",
         .station = StationBuilder().macFields(1, 2, R"("ignoresDFU": true)"),
         .before = {"defaults write verifyTimeoutSeconds 10"},
         .command = {"dfu", "--all"},
         .exit = 1,
         .said = {"Checking the Macs: 9 of 10 in DFU mode\n",
                  "1C3B4A01:2: Mac still booted after 10 s\ntarvel-cli: dfu: 10 of 10 ports "
                  "done; unverified: 1C3B4A01:2 (Mac still booted after 10 s)\n"},
         .logged = "dfu: 1C3B4A01:2: Mac still booted after 10 s"},
        {.name = "DfuMacIgnoresTheMessageUnchecked",
         .station = StationBuilder().macFields(1, 2, R"("ignoresDFU": true)"),
         .command = {"dfu", "1C3B4A01:2", "--no-verify"},
         .notSaid = {"Checking the Macs"}},
        {.name = "DfuCheckWithAWaitNoOneCanWaitOut",
         .station = StationBuilder().macFields(1, 2, R"("ignoresDFU": true)"),
         .before = {"defaults write verifyTimeoutSeconds -float 1e30"},
         .command = {"dfu", "1C3B4A01:2"},
         .exit = 1,
         .said = {"Mac still booted after 30 s"},
         .logged = R"(Setting verifyTimeoutSeconds: "1e+30" is not a number from 0 to 600; )"
                   "using 30"},
        {.name = "DfuHubVanishes",
         .station = StationBuilder().hubFields(1, R"("vanishAfter": 60, "returnAfter": 5000)"),
         .command = with({"dfu"}, portsJson),
         .exit = 1,
         .said = {"hub 1C3B4A01 went away"}},
        {.name = "DfuHubVanishesAndReturns",
         .station = StationBuilder().hubFields(1, R"("vanishAfter": 40, "returnAfter": 5)"),
         .command = with({"dfu"}, portsJson),
         .exit = 1,
         .said = {"hub 1C3B4A01 went away"}},
        {.name = "DfuSimulatorKilled",
         .command = with({"dfu"}, portsJson),
         .interrupt = Interrupt::KillSimulator,
         .at = {R"("step":"DFU message")"},
         .exit = 1,
         .said = {"lost the simulator"},
         .boundSeconds = 15},
        {.name = "DfuCtrlC",
         .command = with({"dfu"}, portsJson),
         .interrupt = Interrupt::Sigint,
         .at = {R"("step":"DFU message")"},
         .exit = 130,
         .said = {"stopped by Ctrl-C"}},
        {.name = "DfuKilledBetweenDisableAndEnableThenRun",
         .command = with({"dfu"}, portsJson),
         .interrupt = Interrupt::Sigkill,
         .at = {R"("step":"power mode")"},
         .rerun = with({"dfu"}, portsJson),
         .said = {R"("wasDisabled":["1C3B4A01:1"])"}},
        {.name = "RestartClean", .command = with({"restart"}, portsJson)},
        {.name = "RestartHardError",
         .station = StationBuilder().hubFaults(1, hardErrorOnMessage(2)),
         .command = with({"restart"}, portsJson),
         .exit = 1,
         .logged = "restart: port failed: 1C3B4A01:2 (reboot, result 6)"},
        // A port that cannot even be power-cycled stops a restart before any message.
        {.name = "RestartPortThatCannotBeDisabled",
         .station = StationBuilder().hubFaults(
             1, R"({"call": "port.setEnabled", "index": 1, "results": [6], "repeat": true})"),
         .command = {"restart", "1C3B4A01:1", "1C3B4A01:2"},
         .exit = 1,
         .said = {"tarvel-cli: restart: 0 of 2 ports done; failed: 1C3B4A01:1 (disable, result "
                  "6); not reached: 1C3B4A01:2\n"},
         .logged = "restart: port failed: 1C3B4A01:1 (disable, result 6)"},
        {.name = "RestartAPortThatIsNotUsable",
         .command = {"restart", "1C3B4A01:6"},
         .exit = 1,
         .said = {"no usable port 1C3B4A01:6"}},
        {.name = "RecoveryClean", .command = with({"recovery"}, portsJson)},
        {.name = "RecoveryWithFourRebootsOnPortsNamedInLowerCase",
         .before = {"defaults write acronameRecoveryRebootTimes -int 4"},
         .command = {"recovery", "1C3B4A01:1", "1c3b4a01:2"},
         .said = {"Restarting 4 of 4 times\n", "recovery: 2 of 2 ports done\n"},
         .notSaid = {"Restarting 5 of"},
         .macsEnd = {"11 recovery", "12 recovery"}},
        {.name = "RecoveryCtrlC",
         .command = with({"recovery"}, portsJson),
         .interrupt = Interrupt::Sigint,
         .at = {R"("step":"settling")"},
         .exit = 130,
         .said = {"stopped by Ctrl-C"}},
        {.name = "PowerModeDisableFails",
         .station = StationBuilder().hubFaults(
             1, R"({"call": "port.setEnabled", "index": 3, "results": [6], "repeat": true})"),
         .command = with({"power-mode", "pd"}, portsJson),
         .exit = 1,
         .logged = "power-mode: port failed: 1C3B4A01:3 (disable, result 6)"},
        {.name = "PowerModeCtrlCBetweenDisableAndEnable",
         .command = with({"power-mode", "pd"}, portsJson),
         .interrupt = Interrupt::Sigint,
         .at = {R"("step":"power mode")"},
         .exit = 130,
         .said = {"stopped by Ctrl-C"}},
    };
}

QList<Cell> hubCells() {
    return {
        // One port's messages: refused where they cannot arrive, checked where they can.
        {.name = "PortDfuNotInPowerDelivery",
         .command = {"port", "dfu", "1C3B4A01:1"},
         .exit = 1,
         .said = {"not in power-delivery mode"}},
        {.name = "PortDfuOnADisabledPort",
         .before = {"port disable 1C3B4A01:1"},
         .command = {"port", "dfu", "1C3B4A01:1"},
         .exit = 1,
         .said = {"the port is disabled"}},
        {.name = "PortRebootWithNothingConnected",
         .command = {"port", "reboot", "1C3B4A01:6"},
         .exit = 1,
         .said = {"nothing is connected to the port"}},
        {.name = "PortDfuForcedOnAPortThatCannotCarryIt",
         .command = {"port", "dfu", "--force", "1C3B4A01:1"},
         .exit = 1,
         .said = {"Mac still booted"}},
        {.name = "PortDfuInPowerDelivery",
         .before = {"power-mode pd 1C3B4A01:1"},
         .command = {"port", "dfu", "1C3B4A01:1"},
         .said = {"dfu 1C3B4A01:1: the Mac is in DFU mode"},
         .macsEnd = {"11 dfu"}},
        {.name = "PortDfuIgnoredByTheMac",
         .station = StationBuilder().macFields(1, 2, R"("ignoresDFU": true)"),
         .before = {"power-mode pd 1C3B4A01:2"},
         .command = {"port", "dfu", "1C3B4A01:2"},
         .exit = 1,
         .said = {"Mac still booted"}},
        {.name = "PortEnableBeyondTheLastPort",
         .command = {"port", "enable", "1C3B4A01:7"},
         .exit = 1,
         .said = {"hub 1C3B4A01 has no port 7 (ports are 0 to 6)"}},
        // The ten usable ports, ports 1 to 5 of each hub, with what they read.
        {.name = "HubsTable",
         .command = {"hubs"},
         .said = {"Hub Serial Firmware Version Port Voltage (V) Current (A) Power (W)  Connected\n",
                  "1C3B4A01   2.10.4              1         5.0 ",
                  "1C3B4A02   2.10.4              5         5.0 "},
         .notSaid = {"2.10.4              0 ", "2.10.4              6 "}},
        {.name = "HubListAsJson",
         .command = {"hub", "list", "--json"},
         .said = {R"("firmwareVersion":"2.10.4")", R"("serial":"1C3B4A02")"}},
        {.name = "HubsOnAnEmptyStation",
         .station = StationBuilder(0),
         .command = {"hub", "list"},
         .said = {"No hubs found.\n"}},
        {.name = "PortDfuOnAHubThatIsNotThere",
         .station = StationBuilder(0),
         .command = {"port", "dfu", "1234ABCD:3"},
         .exit = 1,
         .said = {"tarvel-cli: no hub 1234ABCD on this station"}},
        // The bus as the registry shows it: each hub's control device beside it, booted Macs
        // with their serial numbers, and a DFU Mac whose ECID no registry can hold left without.
        {.name = "UsbList",
         .station = StationBuilder().macState(1, 1, "dfu").macEcid(1, 1, "0xFFFFFFFFFFFFFFFF"),
         .command = {"usb", "list"},
         .said = {"24FF   0014    0x01100000 0x01100000 no                   USBHub3c / 1C3B4A01\n",
                  "24FF   0015    0x01180000 0x01100000 no                   USBHub3c-Stem / "
                  "1C3B4A01\n",
                  "05AC   1905    0x01120000 0x01100000 no                   Mac / AAAA000012\n",
                  "05AC   1227    0x01110000 0x01100000 yes                  Apple Mobile Device "
                  "(DFU Mode) / CPID:8103"}},
        {.name = "UsbListAsJson",
         .command = {"usb", "list", "--json"},
         .said = {R"("productName": "USBHub3c-Stem",)", R"("serialNumber": "AAAA000012",)"}},
        // Nothing listens where tarvel-cli is told the simulator is: one clear error.
        {.name = "HubListWithoutASimulator",
         .command = {"hub", "list", "--json"},
         .interrupt = Interrupt::SimulatorNeverStarted,
         .exit = 1,
         .said = {"no station simulator is running at "}},
        {.name = "UsbListWithoutASimulator",
         .command = {"usb", "list"},
         .interrupt = Interrupt::SimulatorNeverStarted,
         .exit = 1,
         .said = {"cannot read the USB registry"}},
    };
}

}  // namespace

QList<Cell> faultCells() {
    // Built here, not at file scope: the cells are read while tests register, before other
    // files' statics are sure to exist.
    return sequenceCells() + hubCells() + restoreCells() + engineCells();
}

}  // namespace faults
