#include "BenchStation.h"

#include "configurator/AC2Device.h"
#include "core/Alerts.h"
#include "core/SettingsKeys.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>

#include <cstdio>

namespace bench {
namespace {

QByteArray stationFile() {
    QByteArray hubs;
    for (int h = 1; h <= BenchStation::kHubs; ++h) {
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

}  // namespace

BenchStation::BenchStation(double speed, core::Clock& clock)
    : settings_(std::make_unique<QSettings>(folder_.filePath("Tarvel.conf"), QSettings::IniFormat)) {
    QFile file(folder_.filePath("station.json"));
    file.open(QIODevice::WriteOnly);
    file.write(stationFile());
    file.close();
    const QString socket = folder_.filePath("sim.sock");
    simulator_.start(QCoreApplication::applicationDirPath() + "/tarvel-sim",
                     {"--station", file.fileName(), "--socket", socket, "--speed", QString::number(speed)});
    const QDeadlineTimer deadline(10000);
    while (!simulator_.canReadLine() && !deadline.hasExpired()) simulator_.waitForReadyRead(100);
    if (!simulator_.canReadLine()) std::fprintf(stderr, "tarvel-sim did not start\n");

    settings_.registerDefaults({{core::keys::acronameSkipDFUSDPMode, true}});
    backend = std::make_shared<CountingBackend>(stem::makeBackend(socket));
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

BenchStation::~BenchStation() {
    manager->disconnectAllHubs();
    simulator_.terminate();
    simulator_.waitForFinished(5000);
}

AcronamePorts BenchStation::refresh() {
    AcronamePorts ports;
    manager->refreshAcronameDevices([&](AC2Devices entries) {
        for (const auto& entry : entries) ports.push_back(entry->port());
    });
    return ports;
}

AcronamePorts BenchStation::freshPorts() {
    const AcronamePorts ports = refresh();
    for (const auto& port : ports) port->hub()->setPowerModeStandardDownstreamForPort(port->portID());
    return ports;
}

}  // namespace bench
