#include "unattended/BenchMetrics.h"

#include "records/RestoreRecorder.h"
#include "unattended/UnattendedBench.h"

namespace unattended {

void countBench(metrics::MetricsRegistry& registry, UnattendedBench& bench) {
    QObject::connect(&bench, &unattended::UnattendedBench::restoreEnded, &bench,
                     [&registry](const unattended::BenchPort& port, const QString& outcome,
                                 double seconds) {
                         registry.countRestore(outcome, port.model, seconds);
                     });
    QObject::connect(&bench, &unattended::UnattendedBench::dfuAttemptEnded, &bench,
                     [&registry](const unattended::BenchPort&, bool ok, double seconds) {
                         registry.countDfuAttempt(ok, seconds);
                     });
    registry.setGauges([&bench] {
        metrics::MetricsRegistry::Gauges gauges;
        for (unattended::PortPhase phase : unattended::allPortPhases)
            gauges.portsByState[unattended::portPhaseKey(phase)] = 0;
        for (const unattended::BenchPort& port : bench.ports())
            ++gauges.portsByState[unattended::portPhaseKey(port.phase)];
        gauges.hubsConnected = bench.hubsConnected();
        gauges.recordsWaitingToSync = records::RestoreRecorder::shared().waitingToSync();
        return gauges;
    });
}

}  // namespace unattended
