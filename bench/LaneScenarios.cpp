// Parallel hub lanes against one-port-after-another over a simulated station of seven hubs
// (35 usable ports), on the time scale the simulator and the client share:
// - DFU and restart with the shipped hub pauses (3 / 1 / 8 / 5 s), the simulator 50 times
//   faster than life; one hub alone, all seven one port after another, all seven at once;
// - the refresh of seven hubs at the simulator's real speed, where each hub library call is a
//   1 ms USB round trip, connecting the hubs one after another and all at once.
// Times are wall-clock; the table also gives them in real-life seconds (times the speed).
#include "BenchStation.h"

#include "core/SettingsKeys.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

constexpr double kSequenceSpeed = 50;
constexpr int kRuns = 3;

struct Timing {
    double best = 1e9;
    double worst = 0;
    void add(double seconds) {
        best = std::min(best, seconds);
        worst = std::max(worst, seconds);
    }
};

enum class Batch { DFU, Restart };

// Times one batch, from ports every one of which must be power-cycled; fails loudly when the
// batch does not complete, so a fast wrong answer never looks like a fast right one.
double timeBatch(bench::BenchStation& station, Batch batch, bool parallel, bool oneHub) {
    station.settings().setValue(core::keys::acronameParallelHubs, parallel);
    AcronamePorts ports = station.freshPorts();
    if (oneHub) ports.resize(5);
    bool last = false;
    int completions = 0;
    auto update = [](const QString&) {};
    auto completion = [&](bool ok) {
        last = ok;
        ++completions;
    };
    QElapsedTimer timer;
    timer.start();
    if (batch == Batch::DFU)
        station.manager->dfuModeForAcronamePorts(ports, update, completion);
    else
        station.manager->restartForAcronamePorts(ports, update, completion);
    const double seconds = double(timer.nsecsElapsed()) / 1e9;
    if (!last || completions != 1) {
        std::fprintf(stderr, "the batch did not complete\n");
        std::exit(1);
    }
    return seconds;
}

double timeRefresh(bench::BenchStation& station, bool parallel) {
    station.settings().setValue(core::keys::acronameParallelHubs, parallel);
    QElapsedTimer timer;
    timer.start();
    const AcronamePorts ports = station.refresh();
    const double seconds = double(timer.nsecsElapsed()) / 1e9;
    if (ports.size() != std::size_t(bench::BenchStation::kHubs * 5)) {
        std::fprintf(stderr, "the refresh found %zu ports\n", ports.size());
        std::exit(1);
    }
    return seconds;
}

void printRow(const char* scenario, const Timing& timing, double speed, const Timing& against) {
    std::printf("| %-38s | %6.2f-%6.2f s | %6.1f s | %5.2f |\n", scenario, timing.best, timing.worst,
                timing.best * speed, timing.best / against.best);
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    std::printf("| scenario | wall clock (best-worst of %d) | in real life | ratio |\n|---|---|---|---|\n",
                kRuns);
    {
        core::SystemClock clock;
        clock.setSpeed(kSequenceSpeed);
        bench::BenchStation station(kSequenceSpeed, clock);
        for (const auto& [key, value] : {std::pair{core::keys::acronameDelayAfterSettingPowerMode, 3.0},
                                         {core::keys::acronameDelayAfterSendingDFUCommand, 1.0},
                                         {core::keys::acronameDelayAfterPuttingAllPortInDFUMode, 8.0},
                                         {core::keys::acronameDelayAfterRebootAllPorts, 5.0}})
            station.settings().setValue(key, value);
        for (Batch batch : {Batch::DFU, Batch::Restart}) {
            Timing oneHub, sequential, parallel;
            for (int run = 0; run < kRuns; ++run) {
                oneHub.add(timeBatch(station, batch, false, true));
                sequential.add(timeBatch(station, batch, false, false));
                parallel.add(timeBatch(station, batch, true, false));
            }
            const bool dfu = batch == Batch::DFU;
            printRow(dfu ? "DFU, 1 hub (5 ports)" : "restart, 1 hub (5 ports)", oneHub, kSequenceSpeed, oneHub);
            printRow(dfu ? "DFU, 7 hubs one after another" : "restart, 7 hubs one after another", sequential,
                     kSequenceSpeed, oneHub);
            printRow(dfu ? "DFU, 7 hubs in parallel" : "restart, 7 hubs in parallel", parallel, kSequenceSpeed,
                     oneHub);
        }
    }
    {
        core::SystemClock clock;
        bench::BenchStation station(1, clock);
        Timing serial, parallel;
        for (int run = 0; run < kRuns; ++run) {
            serial.add(timeRefresh(station, false));
            parallel.add(timeRefresh(station, true));
        }
        printRow("refresh of 7 hubs, one by one", serial, 1, serial);
        printRow("refresh of 7 hubs, connected at once", parallel, 1, serial);
    }
    return 0;
}
