// A batch of 35 Macs in DFU mode, seven hubs of five, restored through idevicerestore's stand-in
// by `tarvel-cli restore --all-dfu --json` as a technician runs it, with at most 8 restores at
// once and a second between starts. The wall time from tarvel-cli's start to its exit is set
// against the ideal: the restore time for each round of 8 plus every pause between starts, all
// on the simulator's time scale. It also counts the restores running at once, as the batch
// reports them and as the station sees them, since the cap is the point of the queue.

#include "core/SimulatorConnection.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QSet>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

constexpr int hubs = 7;
constexpr int macsPerHub = 5;
constexpr int macs = hubs * macsPerHub;
constexpr int maxAtOnce = 8;
constexpr int pauseBetweenStarts = 1;   // simulated seconds, timeBetweenProcesses
constexpr double restoreSeconds = 120;  // simulated
constexpr double speed = 20;            // one restore takes 6 s of wall time
const QString restored = QStringLiteral("Restored Successfully");

QByteArray stationFile() {
    QJsonArray hubList;
    for (int h = 1; h <= hubs; ++h) {
        QJsonArray macList;
        for (int p = 1; p <= macsPerHub; ++p)
            macList.append(
                QJsonObject{{"port", p},
                            {"ecid", "0x" + QString::number(0xE1000 + h * 16 + p, 16).toUpper()},
                            {"serialNumber", QStringLiteral("ENGINE%1%2").arg(h).arg(p)},
                            {"deviceType", "Mac14,2"},
                            {"state", "dfu"}});
        hubList.append(QJsonObject{{"serial", QStringLiteral("0x%1").arg(0x5EB000 + h, 0, 16)},
                                   {"usbID", h},
                                   {"macs", macList}});
    }
    const QJsonObject timing{{"restoreSeconds", restoreSeconds}};
    return QJsonDocument(QJsonObject{{"timing", timing}, {"hubs", hubList}}).toJson();
}

bool writeFile(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QByteArray configuration(const QString& folder) {
    return QStringLiteral(
               "[General]\nLogFolderPath=%1\nrestoreEngine=idevicerestore\n"
               "maxConcurrentRestores=%2\ntimeBetweenProcesses=%3\n")
        .arg(folder)
        .arg(maxAtOnce)
        .arg(pauseBetweenStarts)
        .toUtf8();
}

// The ideal the batch is held to: each round of `maxAtOnce` takes one restore time, and every pause
// between starts is paid in full.
double idealSimulatedSeconds() {
    const int rounds = (macs + maxAtOnce - 1) / maxAtOnce;
    return restoreSeconds * rounds + pauseBetweenStarts * (macs - 1);
}

// The queue's own schedule with no cost of its own: a start waits for the pause after the
// previous one and for a free slot, so most pauses pass while restores run.
double scheduleSimulatedSeconds() {
    std::vector<double> starts;
    for (int i = 0; i < macs; ++i) {
        double start = i == 0 ? 0 : starts.back() + pauseBetweenStarts;
        if (i >= maxAtOnce)
            start = std::max(start, starts[i - maxAtOnce] + restoreSeconds);
        starts.push_back(start);
    }
    return starts.back() + restoreSeconds;
}

// Restores running at once, from their starts and ends in the order they were told.
class RunningCount {
  public:
    void started(const QString& ecid) {
        running_.insert(ecid);
        peak_ = std::max(peak_, int(running_.size()));
    }
    void ended(const QString& ecid) { running_.remove(ecid); }
    int peak() const { return peak_; }

  private:
    QSet<QString> running_;
    int peak_ = 0;
};

// What tarvel-cli's JSON lines say about the batch.
struct BatchReport {
    RunningCount running;
    int endStatus = -1;
    int restoredInHistory = 0;
    double firstStart = -1;  // wall seconds since tarvel-cli started
    double lastSuccess = -1;
    int unreadableLines = 0;
};

void readBatchLine(const QByteArray& line, double now, BatchReport& report) {
    const QJsonObject event = QJsonDocument::fromJson(line).object();
    const QString kind = event.value("event").toString();
    if (kind == "device") {
        const QString ecid = event.value("ecid").toString();
        const QString status = event.value("status").toString();
        if (status == "Preparing for restore...") {
            report.running.started(ecid);
            if (report.firstStart < 0)
                report.firstStart = now;
        } else if (status == "Successful") {
            report.running.ended(ecid);
            report.lastSuccess = now;
        }
    } else if (kind == "end") {
        report.endStatus = event.value("status").toInt(-1);
        for (const QJsonValue& record : event.value("history").toArray())
            report.restoredInHistory += record.toObject().value("message").toString() == restored;
    } else if (kind.isEmpty()) {
        ++report.unreadableLines;
    }
}

// Starts tarvel-sim on the station file; answers false when it did not say where it listens.
bool startSimulator(QProcess& simulator, const QString& station, const QString& socket) {
    simulator.start(QCoreApplication::applicationDirPath() + "/tarvel-sim",
                    {"--station", station, "--socket", socket, "--speed", QString::number(speed)});
    QElapsedTimer waited;
    waited.start();
    while (!simulator.canReadLine() && waited.elapsed() < 10000) simulator.waitForReadyRead(100);
    return simulator.canReadLine();
}

QProcessEnvironment cliEnvironment(const QString& folder) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XDG_CONFIG_HOME", folder + "/config");
    environment.insert("XDG_STATE_HOME", folder + "/state");
    // The stand-in beside tarvel-cli, as --simulate picks it; never one from the caller's shell.
    environment.remove("TARVEL_IDEVICERESTORE");
    environment.remove("TARVEL_SIM");
    return environment;
}

struct CliRun {
    int exitStatus = -1;
    bool timedOut = false;
    double wallSeconds = 0;
    QByteArray standardError;
};

// Runs the batch with the station's restores watched alongside; answers once tarvel-cli exits
// or the bound passes.
CliRun runBatch(const QString& folder, const QString& socket, BatchReport& report,
                RunningCount& stationRunning) {
    core::SimulatorConnection station(socket);
    QObject::connect(&station, &core::SimulatorConnection::eventReceived,
                     [&](const QString& name, const QJsonObject& payload) {
                         const QString ecid = payload.value("ecid").toString();
                         if (name == "restore.progress")
                             stationRunning.started(ecid);
                         else if (name == "restore.finished")
                             stationRunning.ended(ecid);
                     });
    if (!station.subscribe({"restore"}))
        std::fprintf(stderr, "could not watch the station's restores: %s\n",
                     qPrintable(station.lastError()));

    QProcess cli;
    cli.setProcessEnvironment(cliEnvironment(folder));
    QElapsedTimer wall;
    QObject::connect(&cli, &QProcess::readyReadStandardOutput, [&] {
        while (cli.canReadLine()) readBatchLine(cli.readLine(), wall.elapsed() / 1000.0, report);
    });
    CliRun run;
    QObject::connect(&cli, &QProcess::finished, [&](int code, QProcess::ExitStatus how) {
        run.wallSeconds = wall.elapsed() / 1000.0;
        run.exitStatus = how == QProcess::NormalExit ? code : -1;
        QCoreApplication::exit(0);
    });
    // Five times the ideal is far beyond any run that works.
    QTimer bound;
    bound.setSingleShot(true);
    QObject::connect(&bound, &QTimer::timeout, [&] {
        run.timedOut = true;
        cli.kill();
    });
    bound.start(int(idealSimulatedSeconds() / speed * 5000));
    wall.start();
    cli.start(QCoreApplication::applicationDirPath() + "/tarvel-cli",
              {"--simulate=" + socket, "restore", "--all-dfu", "--json"});
    QCoreApplication::exec();
    while (cli.canReadLine()) readBatchLine(cli.readLine(), run.wallSeconds, report);
    run.standardError = cli.readAllStandardError();
    return run;
}

bool printReport(const CliRun& run, const BatchReport& report, int stationPeak) {
    const double ideal = idealSimulatedSeconds() / speed;
    const double schedule = scheduleSimulatedSeconds() / speed;
    std::printf(
        "batch: %d Macs on %d hubs, idevicerestore stand-in, at most %d at once, "
        "%d s between starts, simulator at speed %g\n",
        macs, hubs, maxAtOnce, pauseBetweenStarts, speed);
    std::printf("tarvel-cli: exit %d%s, end event status %d, %d of %d restored in its history\n",
                run.exitStatus, run.timedOut ? " (killed: over its bound)" : "", report.endStatus,
                report.restoredInHistory, macs);
    std::printf("wall time: %.2f s (first start at %.2f s, last success at %.2f s)\n",
                run.wallSeconds, report.firstStart, report.lastSuccess);
    std::printf("ideal: %.2f s = (%g s restore x %d rounds + %d s x %d pauses) / %g\n", ideal,
                restoreSeconds, (macs + maxAtOnce - 1) / maxAtOnce, pauseBetweenStarts, macs - 1,
                speed);
    std::printf("ratio wall / ideal: %.3f\n", run.wallSeconds / ideal);
    std::printf(
        "queue schedule with no cost of its own (pauses under running restores): "
        "%.2f s, ratio %.3f\n",
        schedule, run.wallSeconds / schedule);
    std::printf("most restores at once: %d in tarvel-cli's batch, %d on the station (cap %d)\n",
                report.running.peak(), stationPeak, maxAtOnce);
    if (report.unreadableLines > 0)
        std::printf("unreadable JSON lines: %d\n", report.unreadableLines);
    if (!run.standardError.isEmpty())
        std::printf("tarvel-cli standard error:\n%s", run.standardError.constData());
    return run.exitStatus == 0 && report.endStatus == 0 && report.restoredInHistory == macs &&
           report.running.peak() <= maxAtOnce && stationPeak <= maxAtOnce &&
           report.unreadableLines == 0;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    QTemporaryDir folder;
    const QString station = folder.filePath("station.json");
    const QString socket = folder.filePath("sim.sock");
    if (!writeFile(station, stationFile()) ||
        !writeFile(folder.filePath("config/kestrune.com/Tarvel.conf"),
                   configuration(folder.path()))) {
        std::fprintf(stderr, "could not write the station or settings in %s\n",
                     qPrintable(folder.path()));
        return 1;
    }
    QProcess simulator;
    if (!startSimulator(simulator, station, socket)) {
        std::fprintf(stderr, "tarvel-sim did not start\n");
        return 1;
    }
    BatchReport report;
    RunningCount stationRunning;
    const CliRun run = runBatch(folder.path(), socket, report, stationRunning);
    simulator.terminate();
    simulator.waitForFinished(5000);
    return printReport(run, report, stationRunning.peak()) ? 0 : 1;
}
