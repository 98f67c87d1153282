// Scenario timings of the hub side over a simulated station of seven hubs (35 usable ports):
// a refresh, a DFU batch and a restart batch. The pauses the sequences must make are recorded
// by the clock instead of slept, so the measured time is what the software itself costs.
#include "BenchStation.h"

#include "core/Clock.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"
#include "station/ZMRAcronameManager.h"

#include <QCoreApplication>

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdio>

namespace {

constexpr int kHubs = bench::BenchStation::kHubs;

// Sleeps nothing, adds up what it was asked to sleep.
class PauseCountingClock final : public core::Clock {
public:
    QDateTime now() const override { return QDateTime::currentDateTime(); }
    void sleepSeconds(unsigned seconds) override { microseconds_ += std::uint64_t(seconds) * 1000000; }
    void sleepMicroseconds(std::uint64_t microseconds) override { microseconds_ += microseconds; }
    double takeSeconds() { return double(microseconds_.exchange(0)) / 1e6; }

private:
    std::atomic<std::uint64_t> microseconds_{0};
};

// One tarvel-sim for the whole run, and a manager over it whose hub delays are all zero.
class Station : public bench::BenchStation {
public:
    Station() : BenchStation(100, pauses) {
        for (const char* key : {core::keys::acronameDelayAfterSettingPowerMode, core::keys::acronameDelayAfterSendingDFUCommand,
                                core::keys::acronameDelayAfterPuttingAllPortInDFUMode,
                                core::keys::acronameDelayAfterRebootAllPorts})
            settings().setValue(key, 0);
    }

    // Outlives every station: the manager keeps a reference.
    static inline PauseCountingClock pauses;
    PauseCountingClock& clock = pauses;
};

Station* station = nullptr;

void reportCalls(benchmark::State& state, long calls) {
    state.counters["library_calls"] = benchmark::Counter(double(calls) / double(state.iterations()));
    state.counters["time_per_call"] =
        benchmark::Counter(double(calls), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void Refresh7Hubs(benchmark::State& state) {
    station->backend->resetCalls();
    for (auto _ : state) benchmark::DoNotOptimize(station->refresh());
    reportCalls(state, station->backend->calls());
}

enum class Batch { DFU, Restart };

void RunBatch(benchmark::State& state, Batch batch) {
    long calls = 0;
    double pauses = 0;
    for (auto _ : state) {
        // Every run starts from ports in standard downstream mode, so the power-delivery pass
        // cycles all 35 of them rather than skipping those a previous run left in that mode.
        state.PauseTiming();
        const AcronamePorts ports = station->freshPorts();
        station->clock.takeSeconds();
        station->backend->resetCalls();
        state.ResumeTiming();
        bool last = false;
        auto update = [](const QString&) {};
        auto completion = [&](bool ok) { last = ok; };
        if (batch == Batch::DFU)
            station->manager->dfuModeForAcronamePorts(ports, update, completion);
        else
            station->manager->restartForAcronamePorts(ports, update, completion);
        if (!last || ports.size() != kHubs * 5) state.SkipWithError("the batch did not complete");
        calls += station->backend->calls();
        pauses += station->clock.takeSeconds();
    }
    reportCalls(state, calls);
    state.counters["mandated_pauses_s"] = benchmark::Counter(pauses / double(state.iterations()));
}

void Dfu35Ports(benchmark::State& state) { RunBatch(state, Batch::DFU); }
void Restart35Ports(benchmark::State& state) { RunBatch(state, Batch::Restart); }

BENCHMARK(Refresh7Hubs)->Unit(benchmark::kMillisecond)->Iterations(20)->UseRealTime();
BENCHMARK(Dfu35Ports)->Unit(benchmark::kMillisecond)->Iterations(10)->UseRealTime();
BENCHMARK(Restart35Ports)->Unit(benchmark::kMillisecond)->Iterations(10)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    Station shared;
    station = &shared;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
