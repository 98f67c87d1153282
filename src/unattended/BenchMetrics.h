#pragma once

#include "metrics/MetricsRegistry.h"

namespace unattended {

class UnattendedBench;

// Counts what the bench reports: restores by outcome and model, DFU attempts and their
// durations; and reads its ports' states and hubs at every scrape.
void countBench(metrics::MetricsRegistry& registry, UnattendedBench& bench);

}  // namespace unattended
