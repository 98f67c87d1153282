// The unattended bench on the desktop at 35 ports (seven hubs of five) with hands at work: every
// 50 ms a port is touched, a Mac plugged in where the port is empty, pulled out where it is done
// or failed, and now and then pulled in the middle of its restore. Each DFU sequence takes 0.3 s
// and leaves its Mac in DFU mode; each restore reports progress ten times a second for 3 s. The
// bench's ports show in the main window's device table and bench map, which take turns on screen.
// Reports the longest stalls of the main loop (gaps between the ticks of a 1 ms timer), the
// cycles that ended and the peak resident memory.
//
//   tarvel-bench-unattended [SECONDS]   (QT_QPA_PLATFORM=offscreen, or on X)

#include "MainLoopStalls.h"

#include "engines/EngineChoice.h"
#include "core/AppState.h"
#include "app/BenchMap.h"
#include "app/DeviceListModel.h"
#include "app/DeviceTableController.h"
#include "app/DfuPortLookup.h"
#include "app/HistoryModel.h"
#include "core/Clock.h"
#include "core/Settings.h"
#include "restore/RestoreSession.h"
#include "unattended/BenchPortModel.h"
#include "unattended/UnattendedBench.h"
#include "usb/DeviceIOKit.h"
#include "usb/HubPortNames.h"
#include "usb/MemoryUsbRegistry.h"
#include "views/DevicePanel.h"
#include "views/MainWindow.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QHash>
#include <QTimer>

#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <functional>

namespace {

constexpr int kHubs = 7;
constexpr int kPortsPerHub = 5;
constexpr int kSequenceMs = 300;
constexpr int kRestoreTicks = 30;  // of 100 ms

std::uint64_t hubLocation(int hub) { return 0x01000000 + (std::uint64_t(hub + 1) << 20); }
QString hubSerial(int hub) { return QStringLiteral("1C3B4A%1").arg(hub + 1, 2, 10, QLatin1Char('0')); }

usb::PropertyMap hubDevice(int hub) {
    return {{"idVendor", 0x24FF}, {"idProduct", 0x0014}, {"locationID", qint64(hubLocation(hub))},
            {"kUSBSerialNumberString", hubSerial(hub)}};
}

usb::PropertyMap bootedMac(std::uint64_t location, int serial) {
    return {{"idVendor", 0x05AC}, {"idProduct", 0x1905}, {"locationID", qint64(location)},
            {"kUSBSerialNumberString", QStringLiteral("C02CHURN%1").arg(serial, 4, 10, QLatin1Char('0'))},
            {"kUSBProductString", "Mac"}};
}

usb::PropertyMap dfuMac(std::uint64_t location, std::uint64_t ecid) {
    return {{"idVendor", 0x05AC},
            {"idProduct", 0x1227},
            {"locationID", qint64(location)},
            {"kUSBSerialNumberString",
             QStringLiteral("CPID:8103 BDID:22 ECID:%1 SRTG:[iBoot-7459.121.3]").arg(ecid, 16, 16, QLatin1Char('0'))},
            {"kUSBProductString", "Apple Mobile Device (DFU Mode)"},
            {"UsbAppleDeviceECID", QString::number(ecid)}};
}

// The hubs: a sequence puts the Mac on its port into DFU mode after a moment.
class QuickDriver final : public unattended::PortDriver {
  public:
    QuickDriver(usb::MemoryUsbRegistry& bus, const usb::HubPortNames& names, QStringList ports)
        : bus_(bus), names_(names), ports_(std::move(ports)) {}
    QStringList ports() const override { return ports_; }
    void refresh() override { emit ready(); }
    void dfu(const QString& port) override {
        QTimer::singleShot(kSequenceMs, this, [this, port] {
            const std::uint64_t location = *names_.locationOf(port);
            const bool there = bus_.detach(location);
            if (there)
                bus_.attach(dfuMac(location, 0x8103000000C000 + ++ecids_));
            emit sequenceEnded(port, {there, !there, there ? QString() : QStringLiteral("pulled")});
        });
    }
    void recovery(const QString& port) override { emit sequenceEnded(port, {true, false, {}}); }
    void stop() override {}

  private:
    usb::MemoryUsbRegistry& bus_;
    const usb::HubPortNames& names_;
    QStringList ports_;
    std::uint64_t ecids_ = 0;
};

// The restore tool: progress ten times a second for three seconds, unless its Mac is pulled;
// then the Mac starts up.
class QuickRestorer final : public unattended::Restorer {
  public:
    // `serials`: the serial number of the Mac plugged in at each location.
    QuickRestorer(usb::MemoryUsbRegistry& bus, const QHash<std::uint64_t, int>& serials)
        : bus_(bus), serials_(serials) {
        connect(&tick_, &QTimer::timeout, this, &QuickRestorer::advance);
        tick_.start(100);
    }
    void restore(const QString& port, std::uint64_t location) override {
        running_.insert(port, {location, 0});
        emit started(port, {QStringLiteral("Mac14,2"), 0, {}});
    }
    void cancelAll() override {}

  private:
    void advance() {
        const auto devices = bus_.devices().value_or(QList<usb::PropertyMap>{});
        for (auto it = running_.begin(); it != running_.end();) {
            const bool present = std::any_of(devices.begin(), devices.end(), [&](const auto& d) {
                return d.value("locationID").toULongLong() == it->first;
            });
            const QString port = it.key();
            if (!present || ++it->second >= kRestoreTicks) {
                // A restored Mac starts up: it leaves DFU mode and shows as booted.
                if (present && bus_.detach(it->first))
                    bus_.attach(bootedMac(it->first, serials_.value(it->first)));
                it = running_.erase(it);
                emit finished(port, present, false,
                              present ? QStringLiteral("Successful")
                                      : QStringLiteral("The device was disconnected."));
                continue;
            }
            emit progress(port, QStringLiteral("Restoring"), double(it->second) / kRestoreTicks);
            ++it;
        }
    }

    usb::MemoryUsbRegistry& bus_;
    const QHash<std::uint64_t, int>& serials_;
    QHash<QString, std::pair<std::uint64_t, int>> running_;
    QTimer tick_;
};

long peakResidentKilobytes() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

}  // namespace

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    const int seconds = argc > 1 ? std::max(1, QString(argv[1]).toInt()) : 20;

    QList<usb::PropertyMap> hubs;
    for (int hub = 0; hub < kHubs; ++hub) hubs << hubDevice(hub);
    usb::MemoryUsbRegistry bus(hubs);
    const usb::HubPortNames names(hubs);
    QuickDriver driver(bus, names, names.names());
    QHash<std::uint64_t, int> serials;
    QuickRestorer restorer(bus, serials);
    QElapsedTimer clock;
    clock.start();
    const auto now = [&clock] { return double(clock.elapsed()) / 1000.0; };
    unattended::UnattendedBench::Options options;
    options.restore = true;
    options.maxRestores = 35;
    options.secondsBetweenStarts = 0;
    unattended::UnattendedBench bench({&bus, &driver, &restorer, now, 100}, options);

    // The desktop's side: the device list follows the bus as USBManager would tell it.
    core::AppState state;
    restore::RestoreSession session(restore::RestoreSession::defaultCollaborators(&state, engines::sharedEngine()));
    app::DeviceListModel devices({&core::Clock::system(), [&names](const AC2Device& mac) {
                                      return names.nameOf(std::uint64_t(mac.locationID()));
                                  }});
    QObject::connect(&bus, &usb::UsbRegistry::deviceArrived, [&](const usb::PropertyMap& device) {
        devices.roster().usbDevicesAdded({DeviceIOKit::deviceInfoWithService(&device)});
    });
    QObject::connect(&bus, &usb::UsbRegistry::deviceRemoved, [&](const usb::PropertyMap& device) {
        devices.roster().usbDevicesRemoved({DeviceIOKit::deviceInfoWithService(&device)});
    });
    unattended::BenchPortModel ports(now);
    app::HistoryModel history(session);
    app::DfuPortLookup lookup;
    app::BenchMap map(devices, 0x100000);
    map.setHubPorts(names.names());
    map.showPortPhases(ports);
    devices.showPortPhases(ports);
    app::DeviceTableController controller({nullptr, &session, &devices, &state, nullptr, 1500, 0});
    views::MainWindow window(state, nullptr);
    auto* panel = new views::DevicePanel(controller, devices, session, history, lookup, map);
    window.setDeviceArea(panel);
    window.show();
    QObject::connect(&bench, &unattended::UnattendedBench::started, [&] { ports.bind(&bench); });
    int ended = 0;
    int restored = 0;
    QObject::connect(&bench, &unattended::UnattendedBench::cycleEnded,
                     [&](const unattended::BenchPort& port) {
                         ++ended;
                         restored += port.restored ? 1 : 0;
                     });
    bench.start();

    // Hands at the bench: one port a turn, round the bench.
    int touched = 0;
    int plugged = 0;
    int pulledMidRestore = 0;
    QTimer hands;
    QObject::connect(&hands, &QTimer::timeout, [&] {
        const QString port = names.names().at(touched++ % names.names().size());
        const std::uint64_t location = *names.locationOf(port);
        const unattended::BenchPort* shown = ports.port(port);
        if (!shown)
            return;
        const auto phase = shown->phase;
        if (phase == unattended::PortPhase::empty) {
            serials.insert(location, ++plugged);
            bus.attach(bootedMac(location, plugged));
        } else if (unattended::isCycleEnd(phase)) {
            bus.detach(location);
        } else if (phase == unattended::PortPhase::restoring && touched % 7 == 0) {
            ++pulledMidRestore;
            bus.detach(location);
        }
    });
    hands.start(50);

    bench::MainLoopStalls stalls;
    // The first second is the window's own start.
    QTimer::singleShot(1000, [&] { stalls.start(); });

    bool mapShown = false;
    QTimer flip;
    QObject::connect(&flip, &QTimer::timeout, [&] { panel->showBenchMap(mapShown = !mapShown); });
    flip.start(2000);

    QTimer::singleShot(seconds * 1000, &application, &QApplication::quit);
    QApplication::exec();

    std::printf("35 ports, %d s: %d Macs plugged in, %d cycles ended (%d restored), %d pulled "
                "during their restore\n",
                seconds, plugged, ended, restored, pulledMidRestore);
    stalls.print();
    std::printf("peak resident memory: %.1f MB\n", double(peakResidentKilobytes()) / 1024.0);
    return 0;
}
