#pragma once

#include "metrics/MetricsRegistry.h"

namespace unattended {
class UnattendedBench;
}

namespace metrics {

// Counts what the bench reports: restores by outcome and model, DFU attempts and their
// durations; and reads its ports' states and hubs at every scrape.
void countBench(MetricsRegistry& registry, unattended::UnattendedBench& bench);

}  // namespace metrics
