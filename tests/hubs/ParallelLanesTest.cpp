#include "LaneClock.h"
#include "StationFixture.h"

#include <QRegularExpression>

#include <chrono>
#include <mutex>
#include <thread>

namespace {

std::string lines(const QStringList& list) {
    return list.join('\n').toStdString();
}

using testing_support::describe;
using testing_support::LaneClock;
using testing_support::StationFixture;

// What one run of a sequence did, on the virtual clock of lanes.
struct LaneRun {
    // "<seconds> <observer event>", as describe() words it.
    QStringList events;
    QStringList updates;
    QStringList completions;
    double seconds = 0;

    QStringList timedOfHub(const QString& hub) const {
        return events.filter(QRegularExpression(" " + hub + ":"));
    }
    // The events of one hub's ports, without their times.
    QStringList ofHub(const QString& hub) const {
        QStringList steps;
        for (const QString& event : timedOfHub(hub)) steps << event.section(' ', 1);
        return steps;
    }
    int passPauses() const { return int(events.filter("pass pause").size()); }
};

// Two hubs of five Macs each. Every run gets a manager of its own on a fresh virtual clock, over
// the same hubs, so a sequential and a parallel run of one test see the same station.
class ParallelLanes : public StationFixture {
  protected:
    ParallelLanes() : StationFixture(2) {
        // The closing charging pass puts every port back, so the second run of a test meets the
        // hubs as the first did.
        settings.settings().setValue(core::keys::acronameSkipDFUSDPMode, false);
    }

    enum class Kind { DFU, Restart, Recovery, PowerMode };

    ZMRAcronameManagerEnvironment onLanes(LaneClock& lanes, bool parallel) {
        ZMRAcronameManagerEnvironment env = environment();
        env.clock = &lanes;
        env.parallelHubs = parallel;
        env.runLanes = [&lanes](std::vector<dispatch::Task> tasks) {
            lanes.runLanes(std::move(tasks));
        };
        return env;
    }
    void replaceManager(const ZMRAcronameManagerEnvironment& env) {
        manager->disconnectAllHubs();
        manager = std::make_shared<ZMRAcronameManager>(env);
    }

    LaneRun run(Kind kind, bool parallel,
                const std::function<AcronamePorts(const AcronamePorts&)>& pick = {}) {
        LaneClock lanes;
        auto record = std::make_shared<LaneRun>();
        replaceManager(onLanes(lanes, parallel));
        AcronamePorts ports = refreshedPorts();
        if (pick)
            ports = pick(ports);

        const PortObserver observer = [record, &lanes](const PortProgress& event) {
            record->events << QString::number(lanes.elapsedSeconds()) + " " + describe(event);
        };
        const auto update = [record](const QString& text) { record->updates << text; };
        const auto completion = [record](bool ok) {
            record->completions << (ok ? "true" : "false");
        };
        switch (kind) {
            case Kind::DFU:
                manager->dfuModeForAcronamePorts(ports, update, completion, observer);
                break;
            case Kind::Restart:
                manager->restartForAcronamePorts(ports, update, completion, observer);
                break;
            case Kind::Recovery:
                manager->recoveryForAcronamePorts(ports, update, completion, observer);
                break;
            case Kind::PowerMode:
                manager->setPowerMode(1, ports, completion, observer);
                break;
        }
        record->seconds = lanes.elapsedSeconds();
        return *record;
    }

    static AcronamePorts firstHubOnly(const AcronamePorts& ports) {
        return AcronamePorts(ports.begin(), ports.begin() + 5);
    }
};

TEST_F(ParallelLanes, EachHubDoesWhatTheSequenceDoesForItsPortsAndTheHubsTakeAsLongAsOne) {
    for (Kind kind : {Kind::DFU, Kind::Restart, Kind::Recovery, Kind::PowerMode}) {
        SCOPED_TRACE(int(kind));
        const LaneRun oneHub = run(kind, false, firstHubOnly);
        const LaneRun sequential = run(kind, false);
        const LaneRun parallel = run(kind, true);

        EXPECT_EQ(lines(parallel.ofHub("1000")), lines(sequential.ofHub("1000")));
        EXPECT_EQ(lines(parallel.ofHub("1001")), lines(sequential.ofHub("1001")));
        EXPECT_LT(parallel.timedOfHub("1001").constFirst().section(' ', 0, 0).toDouble(),
                  parallel.timedOfHub("1000").constLast().section(' ', 0, 0).toDouble())
            << "the second hub's lane starts while the first hub's still works";
        EXPECT_EQ(parallel.passPauses(), sequential.passPauses());
        EXPECT_EQ(lines(parallel.updates), lines(sequential.updates));
        EXPECT_EQ(lines(parallel.completions), lines(sequential.completions));
        EXPECT_DOUBLE_EQ(parallel.seconds, oneHub.seconds);
        EXPECT_GT(sequential.seconds, oneHub.seconds);
    }
}

TEST_F(ParallelLanes, TheWholePassPausesComeOnceAfterTheLastLane) {
    const LaneRun parallel = run(Kind::DFU, true);
    for (const QString& pause : parallel.events.filter("pass pause")) {
        const double moment = pause.section(' ', 0, 0).toDouble();
        const qsizetype index = parallel.events.indexOf(pause);
        for (const QString& earlier : parallel.events.mid(0, index))
            EXPECT_LE(earlier.section(' ', 0, 0).toDouble(), moment) << earlier.toStdString();
    }
    EXPECT_EQ(parallel.events.filter("pass pause").join('|').toStdString(),
              "20 pass pause 3s|28 pass pause 8s|56 pass pause 3s")
        << "power role over five ports, messages over five ports, charging pass over five";
}

TEST_F(ParallelLanes, AFailureInOneLaneStopsTheOtherAtItsNextPort) {
    backend->script("pd[2].setUEIBytes", {stem::aErrIO});
    const LaneRun sequential = run(Kind::DFU, false);
    backend->script("pd[2].setUEIBytes", {stem::aErrIO});
    const LaneRun parallel = run(Kind::DFU, true);

    EXPECT_EQ(lines(parallel.ofHub("1000").filter("DFU message")),
              "1/10 1000:1 DFU message\n2/10 1000:2 DFU message\n"
              "2/10 1000:2 failed at DFU message, result 6");
    EXPECT_EQ(lines(parallel.ofHub("1001").filter("DFU message")), "6/10 1001:1 DFU message")
        << "the second hub's lane woke for port 2 at the moment the first hub's failure was told, "
           "and began no other port";
    EXPECT_EQ(lines(parallel.completions), lines(sequential.completions));
    EXPECT_EQ(lines(parallel.completions), "false\ntrue");
}

// A clock for real threads that really waits a little at each pause, so a lane that fails sits in
// its settling pause long enough for a careless other lane to begin its next port.
class BriefClock final : public core::Clock {
  public:
    QDateTime now() const override { return QDateTime::currentDateTime(); }
    void sleepSeconds(unsigned seconds) override { sleepMicroseconds(seconds * 1000ull); }
    void sleepMicroseconds(std::uint64_t microseconds) override {
        std::this_thread::sleep_for(std::chrono::microseconds(microseconds / 1000));
    }
};

TEST_F(ParallelLanes, OnRealThreadsNoLaneBeginsAPortOnceAFailureIsTold) {
    for (int attempt = 0; attempt < 40; ++attempt) {
        SCOPED_TRACE(attempt);
        BriefClock brief;
        ZMRAcronameManagerEnvironment env = environment();
        env.clock = &brief;
        env.parallelHubs = true;
        env.runLanes = dispatch::concurrently;
        replaceManager(env);
        const AcronamePorts ports = refreshedPorts();
        backend->script("pd[3].setUEIBytes", {stem::aErrIO});

        std::mutex heard;
        QStringList events;
        const PortObserver observer = [&](const PortProgress& event) {
            std::lock_guard hold(heard);
            events << describe(event);
        };
        manager->dfuModeForAcronamePorts(
            ports, [](const QString&) {}, [](bool) {}, observer);

        const QStringList messages = events.filter("DFU message");
        const qsizetype failure =
            messages.indexOf(QRegularExpression(".* failed at DFU message.*"));
        ASSERT_GE(failure, 0) << lines(events);
        EXPECT_EQ(messages.mid(failure + 1), QStringList()) << lines(events);
    }
}

TEST_F(ParallelLanes, AFailedRestartEndsWithTheCompletionsAndTheBeepOfTheOneByOneRestart) {
    backend->script("pd[2].setUEIBytes", {stem::aErrIO});
    const LaneRun sequential = run(Kind::Restart, false);
    ASSERT_EQ(timeline.events().filter("beep").size(), 1);
    timeline.clear();
    backend->script("pd[2].setUEIBytes", {stem::aErrIO});
    const LaneRun parallel = run(Kind::Restart, true);

    EXPECT_EQ(lines(parallel.ofHub("1000").filter("failed")),
              "2/10 1000:2 failed at reboot, result 6");
    EXPECT_EQ(lines(parallel.ofHub("1001").filter("reboot")), "")
        << "the second hub's lane began after the first had failed";
    EXPECT_EQ(lines(parallel.completions), lines(sequential.completions));
    EXPECT_EQ(timeline.events().filter("beep").size(), 1);
}

TEST_F(ParallelLanes, PortsOfTheHubsMayComeInAnyOrder) {
    const auto interleaved = [](const AcronamePorts& ports) {
        return AcronamePorts{ports[5], ports[0], ports[6], ports[1]};
    };
    const LaneRun parallel = run(Kind::PowerMode, true, interleaved);
    EXPECT_EQ(lines(parallel.ofHub("1000").filter("done")), "2/4 1000:1 done\n4/4 1000:2 done");
    EXPECT_EQ(lines(parallel.ofHub("1001").filter("done")), "1/4 1001:1 done\n3/4 1001:2 done");
    EXPECT_DOUBLE_EQ(parallel.seconds, 2 * 4 + 3);
}

TEST_F(ParallelLanes, TheRefreshConnectsHubsAtOnceAndLogsAsTheOneByOneRefreshDoes) {
    const auto refreshOnce = [this](bool parallel) {
        LaneClock lanes;
        ZMRAcronameManagerEnvironment env = onLanes(lanes, parallel);
        QStringList console;
        env.console = {[&](const std::string& text) { console << QString::fromStdString(text); },
                       [&](const std::string& line) { console << QString::fromStdString(line); }};
        replaceManager(env);
        logLines.clear();
        QStringList table;
        manager->refreshAcronameDevices([&](AC2Devices entries) {
            for (const auto& entry : entries) table << entry->port()->name();
        });
        manager->disconnectAllHubs();
        return std::tuple{logLines, console, table};
    };
    refreshOnce(false);  // the first connect stores the hubs' power role; later ones only check it
    const auto [sequentialLog, sequentialConsole, sequentialTable] = refreshOnce(false);
    const auto [parallelLog, parallelConsole, parallelTable] = refreshOnce(true);
    EXPECT_EQ(lines(parallelLog), lines(sequentialLog));
    EXPECT_EQ(lines(parallelConsole), lines(sequentialConsole));
    EXPECT_EQ(lines(parallelTable), lines(sequentialTable));
    EXPECT_EQ(parallelTable.size(), 10);
}

}  // namespace
