#include "station/ZMRAcronameManager.h"

#include "hubs/BrainStemWrapper.h"

#include "configurator/AC2Device.h"
#include "configurator/ProcessEngine.h"
#include "core/Alerts.h"
#include "core/Clock.h"
#include "core/Log.h"
#include "core/NotificationCenter.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"
#include "core/SimulatorAddress.h"
#include "core/Sounds.h"
#include "usb/DeviceIOKit.h"

namespace {

constexpr int kFirstUsablePort = 1;
constexpr int kLastUsablePort = 5;
constexpr std::int64_t kAcronameVendorID = 9471;
const QString kPlaceholder = QStringLiteral("None Reported by Apple Configurator");

using Log = std::function<void(const QString&)>;
using HubTable = std::vector<std::pair<std::shared_ptr<AcronameHub>, AC2Devices>>;

// The hub table as one log text: each hub's serial number with the hub and its port entries.
QString describeHubTable(const HubTable& table) {
    QStringList hubs;
    for (const auto& [hub, entries] : table) {
        QStringList ports;
        for (const auto& entry : entries) ports << QStringLiteral("        \"%1\"").arg(entry->description());
        hubs << QStringLiteral("    %1 = {\n        hub = \"%2\";\n        portArray = (\n%3\n        );\n    };")
                    .arg(hub->serialNumber())
                    .arg(hub->description(), ports.join(",\n"));
    }
    return QStringLiteral("{\n%1\n}").arg(hubs.join('\n'));
}

std::shared_ptr<AC2Device> placeholderEntry(AcronameHub& hub, int portIndex, const Log& log) {
    auto entry = std::make_shared<AC2Device>();
    const auto ports = hub.ports();
    if (ports.size() > static_cast<std::size_t>(portIndex)) {
        entry->setPort(ports[portIndex]);
        log(QString::asprintf("setting port %i", portIndex));
    } else {
        entry->setPort(std::make_shared<AcronamePort>());
    }
    entry->setDeviceType(kPlaceholder);
    entry->setName(kPlaceholder);
    log(QStringLiteral("adding device: %1").arg(entry->description()));
    return entry;
}

// Log and console lines kept in the order they were written, to be written out later.
class HeldOutput {
  public:
    Log log() {
        return [this](const QString& line) { lines_.push_back({Kind::LogLine, line.toStdString()}); };
    }
    DriverConsole console() {
        return {[this](const std::string& text) { lines_.push_back({Kind::Print, text}); },
                [this](const std::string& line) { lines_.push_back({Kind::ConsoleLog, line}); }};
    }
    void writeTo(const Log& log, const DriverConsole& console) const {
        for (const auto& [kind, text] : lines_) {
            if (kind == Kind::LogLine)
                log(QString::fromStdString(text));
            else if (const auto& write = kind == Kind::Print ? console.print : console.log)
                write(text);
        }
    }

  private:
    enum class Kind { LogLine, Print, ConsoleLog };
    std::vector<std::pair<Kind, std::string>> lines_;
};

void addToTable(HubTable& table, const std::shared_ptr<AcronameHub>& hub, AC2Devices entries) {
    for (auto& row : table) {
        if (row.first->serialNumber() == hub->serialNumber()) {
            row = {hub, std::move(entries)};
            return;
        }
    }
    table.emplace_back(hub, std::move(entries));
}

}  // namespace

ZMRAcronameManagerEnvironment ZMRAcronameManagerEnvironment::processDefaults(
    std::optional<QString> simulatorSocket) {
    ZMRAcronameManagerEnvironment environment;
    environment.backend = stem::makeBackend(simulatorSocket);
    environment.settings = &core::Settings::shared();
    environment.clock = &core::Clock::system();
    environment.notifications = &core::NotificationCenter::defaultCenter();
    environment.sounds = &core::Sounds::shared();
    environment.alerts = &core::Alerts::shared();
    environment.runInBackground = dispatch::global;
    environment.runOnMain = dispatch::main;
    // The listing runs its tool on the main loop, also when a sequence on a worker asks for it.
    environment.listDevices = [](std::function<void(AC2Devices)> callback) {
        dispatch::main([callback = std::move(callback)] { configurator::listMacs(callback); });
    };
    environment.hubAddress = [](std::uint64_t address) {
        return DeviceIOKit().hubAddressWithDeviceAddress(address);
    };
    environment.vendorSerialNumber = [](std::uint64_t address, std::int64_t vendor) {
        return DeviceIOKit().vendorSerialNumberWithDeviceAddress(address, vendor);
    };
    environment.console = DriverConsole::standard();
    environment.log = ZMRLogLevel1;
    // Whichever front end started the sequence, the log names the port that stopped it: the
    // technician reading it later has no window or terminal to ask.
    environment.portFailed = [](const AcronamePort& port, const QString& command) {
        ZMRLogLevel0(QStringLiteral("Port %1 failed: %2").arg(port.name(), command));
    };
    return environment;
}

ZMRAcronameManager::ZMRAcronameManager(ZMRAcronameManagerEnvironment environment)
    : environment_(std::move(environment)) {}

std::shared_ptr<ZMRAcronameManager> ZMRAcronameManager::sharedManager() {
    static const std::shared_ptr<ZMRAcronameManager> manager = std::make_shared<ZMRAcronameManager>(
        ZMRAcronameManagerEnvironment::processDefaults(core::simulatorSocketFromEnvironment()));
    return manager;
}

std::vector<std::shared_ptr<AcronameHub>> ZMRAcronameManager::hubs() const {
    std::lock_guard lock(mutex_);
    return hubs_;
}

void ZMRAcronameManager::setHubs(std::vector<std::shared_ptr<AcronameHub>> hubs) {
    std::lock_guard lock(mutex_);
    hubs_ = std::move(hubs);
}

AC2Devices ZMRAcronameManager::ac2Devices() const {
    std::lock_guard lock(mutex_);
    return ac2Devices_;
}

void ZMRAcronameManager::setAc2Devices(AC2Devices devices) {
    std::lock_guard lock(mutex_);
    ac2Devices_ = std::move(devices);
}

void ZMRAcronameManager::disconnectAllHubs() {
    for (const auto& hub : hubs()) hub->disconnect();
}

void ZMRAcronameManager::refreshAcronameDevices(std::function<void(AC2Devices)> completion) {
    const Log& log = environment_.log;
    disconnectAllHubs();
    setHubs(BrainStemWrapper::hubs(environment_.backend, *environment_.clock, environment_.console));
    setAc2Devices({});
    const auto found = hubs();
    if (found.empty()) {
        log(QStringLiteral("No hubs found"));
        completion({});
        return;
    }

    log(QStringLiteral("enumerating hubs"));
    const std::vector<bool> connected = connectHubs(found);
    for (std::size_t i = 0; i < found.size(); ++i) {
        if (connected[i]) continue;
        std::weak_ptr<ZMRAcronameManager> weak = weak_from_this();
        environment_.runOnMain([alerts = environment_.alerts, completion, weak] {
            alerts->show({QStringLiteral("Connection Error"),
                          QStringLiteral("The connection to the hub failed. Please check the "
                                         "connection and try again"),
                          {QStringLiteral("OK")}});
            if (auto manager = weak.lock()) completion(manager->ac2Devices());
        });
    }

    log(QStringLiteral("checking for apple configurator on hubs"));
    HubTable table;
    for (const auto& hub : found) {
        log(QStringLiteral("current hub: %1").arg(hub->description()));
        AC2Devices entries;
        for (int p = kFirstUsablePort; p <= kLastUsablePort; ++p) entries.push_back(placeholderEntry(*hub, p, log));
        addToTable(table, hub, std::move(entries));
        log(QStringLiteral("hubdict: %1").arg(describeHubTable(table)));
    }
    listAndMatchDevices(std::move(table), std::move(completion));
}

bool ZMRAcronameManager::parallelHubs() const {
    return environment_.parallelHubs.value_or(
        environment_.settings->boolForKey(core::keys::acronameParallelHubs));
}

std::vector<bool> ZMRAcronameManager::connectHubs(const std::vector<std::shared_ptr<AcronameHub>>& hubs) {
    // A byte per hub: the lanes write their own entries at once, and the bits of a vector<bool>
    // share their words.
    std::vector<std::uint8_t> connected(hubs.size(), 0);
    const auto connectOne = [&](std::size_t i, const Log& log) {
        log(QString::asprintf("connecting to hub %li", long(i)));
        connected[i] = hubs[i]->connect();
        if (!connected[i]) log(QStringLiteral("error connecting to hub"));
    };
    if (!parallelHubs() || hubs.size() < 2) {
        for (std::size_t i = 0; i < hubs.size(); ++i) connectOne(i, environment_.log);
        return {connected.begin(), connected.end()};
    }
    // What each hub and its driver say while connecting is held back and written hub by hub,
    // in discovery order, so that the log reads as the one-by-one connect does.
    std::vector<HeldOutput> held(hubs.size());
    std::vector<dispatch::Task> lanes;
    for (std::size_t i = 0; i < hubs.size(); ++i) {
        hubs[i]->setConsole(held[i].console());
        lanes.push_back([&, i] { connectOne(i, held[i].log()); });
    }
    environment_.runLanes(std::move(lanes));
    for (std::size_t i = 0; i < hubs.size(); ++i) {
        hubs[i]->setConsole(environment_.console);
        held[i].writeTo(environment_.log, environment_.console);
    }
    return {connected.begin(), connected.end()};
}

void ZMRAcronameManager::listAndMatchDevices(HubTable table, std::function<void(AC2Devices)> completion) {
    const Log& log = environment_.log;
    log(QStringLiteral("********** calling attachedDevicesWithCallback"));
    std::weak_ptr<ZMRAcronameManager> weak = weak_from_this();
    environment_.listDevices([weak, table = std::move(table),
                              completion = std::move(completion)](AC2Devices devices) {
        auto manager = weak.lock();
        if (!manager) return;
        manager->environment_.log(QStringLiteral("######## calling attachedDevicesWithCallback CALLBACK CALLED"));
        for (const auto& device : devices) manager->logHubSerialOfDevice(*device);
        AC2Devices entries;
        for (const auto& row : table) entries += row.second;
        manager->setAc2Devices(entries);
        manager->environment_.log(
            QString::asprintf("ac2Devices count: %lu", static_cast<unsigned long>(entries.size())));
        completion(entries);
    });
}

// Only logged: which hub a listed device hangs on, found through the hub's USB serial number.
void ZMRAcronameManager::logHubSerialOfDevice(const AC2Device& device) const {
    const Log& log = environment_.log;
    const auto location = static_cast<std::uint64_t>(device.locationID());
    log(QString::asprintf("port: %li", long((location >> 16) & 0xF)));
    log(QStringLiteral("searching for vendorSerialNumberWithDeviceAddress:"));
    const std::uint64_t hub = environment_.hubAddress(location);
    const auto serial = environment_.vendorSerialNumber(hub, kAcronameVendorID);
    if (serial)
        log(QString::asprintf("found serial: %li", long(core::textAsInteger(*serial))));
    else
        log(QStringLiteral("serialNumberString is nil"));
}
