// Scenario timings of the hub side over a simulated station of seven hubs (35 usable ports):
// a refresh, a DFU batch and a restart batch. The pauses the sequences must make are recorded
// by the clock instead of slept, so the measured time is what the software itself costs.
#include "CountingBackend.h"

#include "configurator/AC2Device.h"
#include "core/Alerts.h"
#include "core/Clock.h"
#include "core/NotificationCenter.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"
#include "core/Sounds.h"
#include "hubs/ZMRAcronameManager.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdio>

namespace {

constexpr int kHubs = 7;

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

class NoSounds final : public core::Sounds {
public:
    void beep() override {}
    void play(const QString&) override {}
};

QByteArray stationFile() {
    QByteArray hubs;
    for (int h = 1; h <= kHubs; ++h) {
        QByteArray macs;
        for (int p = 1; p <= 5; ++p)
            macs += QStringLiteral(R"(%1{"port": %2, "ecid": "0x%3", "serialNumber": "BENCH%4"})")
                        .arg(p > 1 ? "," : "").arg(p).arg(h * 16 + p, 0, 16).arg(h * 10 + p, 5, 10, QChar('0'))
                        .toUtf8();
        hubs += QStringLiteral(R"(%1{"serial": "0x%2", "usbID": %3, "macs": [%4]})")
                    .arg(h > 1 ? "," : "").arg(0x5EA000 + h, 0, 16).arg(h).arg(QString::fromUtf8(macs))
                    .toUtf8();
    }
    return R"({"timing": {"bootSeconds": 0.1, "dfuSeconds": 0.1}, "hubs": [)" + hubs + "]}";
}

// One tarvel-sim for the whole run, and a manager over it whose hub delays are all zero.
class Station {
public:
    Station() {
        QFile file(folder_.filePath("station.json"));
        file.open(QIODevice::WriteOnly);
        file.write(stationFile());
        file.close();
        const QString socket = folder_.filePath("sim.sock");
        simulator_.start(QCoreApplication::applicationDirPath() + "/tarvel-sim",
                         {"--station", file.fileName(), "--socket", socket, "--speed", "100"});
        const QDeadlineTimer deadline(10000);
        while (!simulator_.canReadLine() && !deadline.hasExpired()) simulator_.waitForReadyRead(100);
        if (!simulator_.canReadLine()) std::fprintf(stderr, "tarvel-sim did not start\n");

        settings_.registerDefaults({{core::keys::acronameSkipDFUSDPMode, true}});
        for (const char* key : {core::keys::acronameDelayAfterSettingPowerMode, core::keys::acronameDelayAfterSendingDFUCommand,
                                core::keys::acronameDelayAfterPuttingAllPortInDFUMode,
                                core::keys::acronameDelayAfterRebootAllPorts})
            settings_.setValue(key, 0);

        backend = std::make_shared<bench::CountingBackend>(stem::makeBackend(socket));
        ZMRAcronameManagerEnvironment environment;
        environment.backend = backend;
        environment.settings = &settings_;
        environment.clock = &clock;
        environment.notifications = &notifications_;
        environment.sounds = &sounds_;
        environment.alerts = &core::Alerts::shared();
        environment.runInBackground = [](dispatch::Task task) { task(); };
        environment.runOnMain = [](dispatch::Task task) { task(); };
        environment.listDevices = [](std::function<void(AC2Devices)> callback) { callback({}); };
        environment.hubAddress = [](std::uint64_t) { return std::uint64_t(0); };
        environment.vendorSerialNumber = [](std::uint64_t, std::int64_t) { return std::optional<QString>(); };
        environment.console = {[](const std::string&) {}, [](const std::string&) {}};
        environment.log = [](const QString&) {};
        manager = std::make_shared<ZMRAcronameManager>(environment);
    }

    ~Station() {
        manager->disconnectAllHubs();
        simulator_.terminate();
        simulator_.waitForFinished(5000);
    }

    AcronamePorts refresh() {
        AcronamePorts ports;
        manager->refreshAcronameDevices([&](AC2Devices entries) {
            for (const auto& entry : entries) ports.push_back(entry->port());
        });
        return ports;
    }

    std::shared_ptr<bench::CountingBackend> backend;
    PauseCountingClock clock;
    std::shared_ptr<ZMRAcronameManager> manager;

private:
    QTemporaryDir folder_;
    QProcess simulator_;
    core::Settings settings_{std::make_unique<QSettings>(folder_.filePath("Tarvel.conf"), QSettings::IniFormat)};
    core::NotificationCenter notifications_;
    NoSounds sounds_;
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
        const AcronamePorts ports = station->refresh();
        for (const auto& port : ports) port->hub()->setPowerModeStandardDownstreamForPort(port->portID());
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
