#include "Protocol.h"
#include "Scheduler.h"
#include "Server.h"
#include "Station.h"
#include "StationConfig.h"

#include "core/BundleInfo.h"
#include "core/SimulatorAddress.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSocketNotifier>

#include <sys/socket.h>
#include <unistd.h>
#include <csignal>
#include <cstdio>

namespace {

int signalPipe[2] = {-1, -1};

void onSignal(int) {
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[1], &byte, 1);
}

// Signals only write a byte; the event loop reads it and quits, so shutdown runs normal code.
bool routeSignalsToLoop(QCoreApplication& application) {
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalPipe) != 0)
        return false;
    auto* notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, &application);
    QObject::connect(notifier, &QSocketNotifier::activated, &application, [&application] {
        char byte = 0;
        [[maybe_unused]] const ssize_t read = ::read(signalPipe[0], &byte, 1);
        application.quit();
    });
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    return ::sigaction(SIGINT, &action, nullptr) == 0 &&
           ::sigaction(SIGTERM, &action, nullptr) == 0;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("tarvel-sim"));
    const core::BundleInfo& bundle = core::BundleInfo::shared();
    QCoreApplication::setApplicationVersion(
        QStringLiteral("%1 (%2)").arg(bundle.shortVersion(), bundle.bundleVersion()));
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Simulated Tarvel station: hubs, Macs and USB."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption stationOption(
        QStringLiteral("station"), QStringLiteral("Station file (JSON)."), QStringLiteral("FILE"));
    const QCommandLineOption socketOption(QStringLiteral("socket"), QStringLiteral("Socket path."),
                                          QStringLiteral("PATH"));
    const QCommandLineOption speedOption(QStringLiteral("speed"),
                                         QStringLiteral("Run delays N times faster."),
                                         QStringLiteral("N"), QStringLiteral("1"));
    parser.addOptions({stationOption, socketOption, speedOption});
    parser.process(application);

    bool speedOk = false;
    const double speed = parser.value(speedOption).toDouble(&speedOk);
    if (!speedOk || speed <= 0) {
        std::fprintf(stderr, "tarvel-sim: --speed must be a number above 0\n");
        return 2;
    }
    sim::StationConfig config;
    if (parser.isSet(stationOption)) {
        sim::StationLoad load = sim::loadStationFile(parser.value(stationOption));
        for (const QString& error : load.errors)
            std::fprintf(stderr, "tarvel-sim: %s\n", qPrintable(error));
        if (load.unlistedErrors > 0)
            std::fprintf(stderr, "tarvel-sim: and %lld more errors\n",
                         static_cast<long long>(load.unlistedErrors));
        if (!load.station)
            return 1;
        config = std::move(*load.station);
    } else {
        config = sim::defaultStation();
    }

    sim::TimerScheduler scheduler(speed);
    sim::Station station(std::move(config), scheduler);
    sim::Protocol protocol(station, speed);
    sim::Server server(protocol);
    station.setEventSink(
        [&server](const QString& topic, const QString& name, const QJsonObject& payload) {
            server.broadcast(topic, name, payload);
        });
    const QString path = parser.isSet(socketOption) ? parser.value(socketOption)
                                                    : core::defaultSimulatorSocketPath();
    QString error;
    if (!server.listen(path, &error)) {
        std::fprintf(stderr, "tarvel-sim: %s\n", qPrintable(error));
        return 1;
    }
    if (!routeSignalsToLoop(application))
        std::fprintf(stderr, "tarvel-sim: cannot catch SIGINT/SIGTERM\n");
    std::printf("%s\n", qPrintable(path));
    std::fflush(stdout);
    const int status = application.exec();
    server.close();
    return status;
}
