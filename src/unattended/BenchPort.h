#pragma once

#include <QMetaType>
#include <QString>

#include <cstdint>

namespace unattended {

// Where one hub port of the bench stands in its cycle. A cycle begins when a Mac arrives and
// ends in done, failed or needsAttention, which the port shows until that Mac is pulled out.
enum class PortPhase {
    empty,           // no Mac, or the last one was pulled out
    dfuSequence,     // the port's DFU sequence runs
    waitingForDFU,   // the sequence ended; waiting for the Mac to show DFU mode
    queued,          // in DFU mode, waiting for its turn to restore
    restoring,       // its restore runs
    recovery,        // restored; being started into recovery
    done,            // everything asked for was done
    failed,          // a step failed; `reason` says which and why
    needsAttention,  // the Mac never showed DFU mode through every retry
};

// "empty", "DFU", "waiting for DFU", "queued", "restoring", "recovery", "done", "failed",
// "needs attention".
QString portPhaseText(PortPhase phase);
// The same as one word for labels and JSON: "empty", "dfu", "waiting_for_dfu", ...
QString portPhaseKey(PortPhase phase);
// The same for a tile or a table cell: "Sending DFU", "Waiting for DFU", "Queued", ... (the
// sequence's phase is not "DFU" there, which would read as the Mac's mode).
QString portPhaseTitle(PortPhase phase);
bool isCycleEnd(PortPhase phase);
inline constexpr PortPhase allPortPhases[] = {
    PortPhase::empty,    PortPhase::dfuSequence, PortPhase::waitingForDFU,
    PortPhase::queued,   PortPhase::restoring,   PortPhase::recovery,
    PortPhase::done,     PortPhase::failed,      PortPhase::needsAttention};

// One port as the bench shows it.
struct BenchPort {
    // A port with nothing on it.
    static BenchPort named(const QString& name) {
        BenchPort port;
        port.name = name;
        return port;
    }

    QString name;   // "1C3B4A01:3"
    QString model;  // the Mac's deviceType once Apple Configurator listed it
    std::uint64_t ecid = 0;
    QString serialNumber;
    PortPhase phase = PortPhase::empty;
    double since = 0;       // station seconds at which the phase began
    double progress = -1;   // the restore's progress 0-1; -1 without one
    QString step;           // the restore tool's step
    QString reason;         // why the cycle failed or needs attention
    int dfuAttempts = 0;    // DFU sequences run for this Mac
    bool restored = false;  // its restore succeeded (recovery may still fail after it)
};

}  // namespace unattended

Q_DECLARE_METATYPE(unattended::BenchPort)
