#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

namespace faults {

// The station every cell runs on: two hubs (1C3B4A01, 1C3B4A02) with a Mac on each of ports 1 to
// 5, and what the cell changes about it.
struct StationSpec {
    QByteArray firstHubFaults;  // the first hub's "faults" entries
    QByteArray firstHubExtra;   // more fields of the first hub ("vanishAfter": …)
    QByteArray secondMacExtra;  // more fields of the Mac on 1C3B4A01:2
    QByteArray macState = "booted";
    QByteArray topExtra;  // more top-level fields ("cfgutil": …)
};

// What happens to the run while it works.
enum class Interrupt {
    None,
    Sigint,            // one Ctrl-C when `at` shows
    DoubleSigint,      // two, a moment apart
    Sigkill,           // tarvel-cli killed when `at` shows; `rerun` is what is checked
    KillSimulator,     // tarvel-sim killed when `at` shows
    RestartSimulator,  // tarvel-sim killed and started again; the run is then stopped by the test
};

// One cell of the matrix: a command against a fault, and what the truth is.
struct Cell {
    const char* name;
    StationSpec station;
    QStringList before;  // tarvel-cli commands run first; each must succeed
    QStringList command;
    Interrupt interrupt = Interrupt::None;
    QByteArray at;  // output at which the interrupt comes
    QStringList rerun;
    int exit = 0;  // the truthful exit status (ignored for a run the test stops)
    QString said;  // the output holds it
    QString notSaid;
    QString logged;  // the log holds it
    int boundSeconds = 40;
};

QList<Cell> faultCells();

// The station file of a spec.
QByteArray stationJson(const StationSpec& spec);

}  // namespace faults
