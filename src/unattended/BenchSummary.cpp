#include "unattended/BenchSummary.h"

namespace unattended {

double BenchSummary::macsPerHour() const {
    return elapsedSeconds > 0 ? restored * 3600.0 / elapsedSeconds : 0;
}

void BenchSummary::countCycleEnd(PortPhase phase, bool restoredMac, bool cancelledCycle) {
    if (restoredMac)
        ++restored;
    if (cancelledCycle)
        ++cancelled;
    else if (phase == PortPhase::done)
        ++done;
    else if (phase == PortPhase::failed)
        ++failed;
    else
        ++needsAttention;
}

}  // namespace unattended
