#pragma once

#include "support/StationBuilder.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

namespace faults {

// What happens to the run while it works.
enum class Interrupt {
    None,
    Sigint,            // one Ctrl-C when `at` shows
    DoubleSigint,      // two, a moment apart
    Sigkill,           // tarvel-cli killed when `at` shows; `rerun` is then run as well
    KillSimulator,     // tarvel-sim killed when `at` shows
    RestartSimulator,  // tarvel-sim killed and started again; the run is then stopped by the test
    SimulatorNeverStarted,  // nothing listens on the socket tarvel-cli is given
};

// One cell of the matrix: a command against a fault, and what the truth is.
struct Cell {
    const char* name;
    // Two hubs (1C3B4A01, 1C3B4A02) with a booted Mac on each of ports 1 to 5, unless told.
    testing_support::StationBuilder station;
    QStringList before;  // tarvel-cli commands run first; each must succeed
    QStringList command;
    Interrupt interrupt = Interrupt::None;
    QByteArrayList at;  // the interrupt comes once the output has shown all of these
    QStringList rerun;
    int exit = 0;      // the truthful exit status (ignored for a run the test stops)
    QStringList said;  // the output holds each
    QStringList notSaid;
    QString logged;           // the log holds it, once
    QStringList macsEnd;      // "ECID state" of Macs once the run is over ("11 dfu")
    bool sessionBus = false;  // a desktop's session bus, where there is otherwise none
    int boundSeconds = 40;
};

QList<Cell> faultCells();
QList<Cell> restoreCells();  // listings, restores, the unattended bench and the host's port
QList<Cell> engineCells();   // the idevicerestore engine: its failures, retries, cancel and cap

// Every vendor message to the port fails for good.
inline QByteArray hardErrorOnMessage(int port) {
    return R"({"call": "pd.setUEIBytes", "index": )" + QByteArray::number(port) +
           R"(, "results": [6], "repeat": true})";
}

}  // namespace faults
