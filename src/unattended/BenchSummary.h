#pragma once

#include "unattended/BenchPort.h"

namespace unattended {

// The day so far: cycles by how they ended, and what is under way.
struct BenchSummary {
    int done = 0;  // cycles that did everything asked (restored ones included)
    int restored = 0;
    int failed = 0;
    int needsAttention = 0;
    int cancelled = 0;  // restores cancelled and sequences stopped by stop()
    int underWay = 0;
    double elapsedSeconds = 0;

    double macsPerHour() const;
    // A cycle ended in `phase` (done, failed or needs attention); a cancelled one counts as
    // cancelled whatever its phase.
    void countCycleEnd(PortPhase phase, bool restoredMac, bool cancelledCycle);
};

}  // namespace unattended
