// The desktop application's main window with a bench of 35 Macs (seven hubs of five) restoring
// at once while USB churns: every Mac reports progress ten times a second, and every 50 ms one
// Mac leaves the bus and comes back, as Macs do between the steps of a restore. The device table
// and the bench map take turns on screen every two seconds. Reports how long the window took to
// show, the longest stall of the main loop (the longest gap between the ticks of a 1 ms timer),
// and the peak resident memory.
//
//   tarvel-bench-desktop [SECONDS [table|map|both]]   (QT_QPA_PLATFORM=offscreen, or on X)

#include "MainLoopStalls.h"

#include "engines/EngineChoice.h"
#include "core/AppState.h"
#include "app/BenchMap.h"
#include "app/DeviceListModel.h"
#include "app/DeviceTableController.h"
#include "app/DfuPortLookup.h"
#include "app/HistoryModel.h"
#include "configurator/AC2Device.h"
#include "core/Clock.h"
#include "core/Settings.h"
#include "restore/RestoreSession.h"
#include "views/DevicePanel.h"
#include "views/MainWindow.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>
#include <functional>

#include <sys/resource.h>

#include <cstdio>

namespace {

constexpr int kHubs = 7;
constexpr int kPortsPerHub = 5;
constexpr int kMacs = kHubs * kPortsPerHub;

QString hubSerial(int hub) {
    return QStringLiteral("1C3B4A%1").arg(hub + 1, 2, 16, QLatin1Char('0')).toUpper();
}

std::int64_t locationOf(int mac) {
    return 0x1000000 + (std::int64_t(mac / kPortsPerHub + 1) << 20) +
           (std::int64_t(mac % kPortsPerHub + 1) << 16);
}

configurator::DeviceList benchMacs() {
    static const QStringList models{"Macmini9,1", "MacBookAir10,1", "Mac14,3", "MacBookPro18,3",
                                    "Mac13,1"};
    configurator::DeviceList macs;
    for (int mac = 0; mac < kMacs; ++mac) {
        auto device = std::make_shared<AC2Device>();
        device->setEcid(0x8103000000A000 + mac);
        device->setSerialNumber(QStringLiteral("C02BENCH%1").arg(mac, 2, 10, QLatin1Char('0')));
        device->setLocationID(locationOf(mac));
        device->setInDFU(true);
        device->setDeviceType(models[mac % models.size()]);
        device->setName(QStringLiteral("Bench %1").arg(mac + 1));
        macs.append(device);
    }
    return macs;
}

DeviceIOKitInfo usbIdentity(const AC2Device& mac) {
    return {1452, QString(), mac.locationID(), QStringLiteral("Apple Mobile Device (DFU Mode)"),
            static_cast<std::int64_t>(mac.ecid())};
}

long peakResidentKilobytes() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

}  // namespace

int main(int argc, char** argv) {
    QElapsedTimer sinceStart;
    sinceStart.start();
    QApplication application(argc, argv);
    const int seconds = argc > 1 ? std::max(1, QString(argv[1]).toInt()) : 10;
    const QString shown = argc > 2 ? QString(argv[2]) : QStringLiteral("both");

    core::AppState state;
    restore::RestoreSession session(restore::RestoreSession::defaultCollaborators(&state, engines::sharedEngine()));
    app::DeviceListModel devices(
        {&core::Clock::system(), [](const AC2Device& mac) {
             const auto index = int((mac.locationID() >> 20) & 0xF) - 1;
             const auto port = int((mac.locationID() >> 16) & 0xF);
             return QStringLiteral("%1:%2").arg(hubSerial(index)).arg(port);
         }});
    app::HistoryModel history(session);
    app::DfuPortLookup lookup;
    app::BenchMap map(devices, 0x100000);
    app::DeviceTableController controller({nullptr, &session, &devices, &state, nullptr, 1500, 0});
    views::MainWindow window(state, nullptr);
    auto* panel = new views::DevicePanel(controller, devices, session, history, lookup, map);
    window.setDeviceArea(panel);

    qint64 shownAfter = -1;
    QObject::connect(&window, &views::MainWindow::firstExposed,
                     [&] { shownAfter = sinceStart.elapsed(); });
    window.show();
    while (shownAfter < 0 && sinceStart.elapsed() < 5000)
        QApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);

    // 35 Macs listed, on seven hubs' ports.
    QStringList ports;
    for (int hub = 0; hub < kHubs; ++hub)
        for (int port = 1; port <= kPortsPerHub; ++port)
            ports << QStringLiteral("%1:%2").arg(hubSerial(hub)).arg(port);
    map.setHubPorts(ports);
    devices.roster().applyListing(benchMacs());
    for (int row = 0; row < devices.rowCount(); ++row) devices.deviceAt(row)->setIsRestoring(true);
    state.setIsRunning(true);

    // The longest stalls, with when they ended (since the batch began).
    bench::MainLoopStalls stalls;
    stalls.start();

    int progressTick = 0;
    QTimer progress;
    QObject::connect(&progress, &QTimer::timeout, [&] {
        ++progressTick;
        double sum = 0;
        for (int row = 0; row < devices.rowCount(); ++row) {
            const float fraction = float((progressTick + row * 7) % 1000) / 1000.0f;
            const auto mac = devices.deviceAt(row);
            mac->setRestoreStatus(QStringLiteral("Restoring"));
            devices.deviceProgress(mac, fraction);
            sum += fraction;
        }
        state.setProgressBarValue(sum / devices.rowCount());
        state.setProgressMessage(QStringLiteral("Restoring %1 devices").arg(devices.rowCount()));
    });
    progress.start(100);

    int churned = 0;
    QTimer churn;
    QObject::connect(&churn, &QTimer::timeout, [&] {
        const auto mac = devices.deviceAt(churned++ % devices.rowCount());
        devices.roster().usbDevicesRemoved({usbIdentity(*mac)});
        devices.roster().usbDevicesAdded({usbIdentity(*mac)});
    });
    churn.start(50);

    bool mapShown = shown == QLatin1String("map");
    panel->showBenchMap(mapShown);
    QTimer flip;
    QObject::connect(&flip, &QTimer::timeout, [&] { panel->showBenchMap(mapShown = !mapShown); });
    if (shown == QLatin1String("both"))
        flip.start(2000);

    QTimer::singleShot(seconds * 1000, &application, &QApplication::quit);
    QApplication::exec();

    std::printf("window shown after %lld ms (from main)\n", static_cast<long long>(shownAfter));
    std::printf("%d Macs, %d s: %d progress rounds, %d USB re-enumerations\n", kMacs, seconds,
                progressTick, churned);
    stalls.print();
    std::printf("peak resident memory: %.1f MB\n", double(peakResidentKilobytes()) / 1024.0);
    return 0;
}
