// Discovery, connection and the reads that fill in hub and port records.

#include "hubs/AcronameHub.h"
#include "hubs/AcronamePort.h"
#include "hubs/BrainStemWrapper.h"
#include "hubs/StemRetry.h"

namespace {

constexpr std::uint8_t kInputPowerSourceUnregulated = 8;
constexpr std::uint8_t kInputPowerSourceRegulated = 7;
constexpr std::uint32_t kUnregulatedSupplyMaxWatts = 250;
constexpr std::size_t kVersionTextLength = 255;

float microUnits(stem::aErr err, std::int32_t value) {
    return err == stem::aErrNone ? static_cast<float>(value / 1000000.0) : 0.0f;
}

}  // namespace

std::vector<std::shared_ptr<AcronameHub>> BrainStemWrapper::hubs(
    const std::shared_ptr<stem::Backend>& backend, core::Clock& clock,
    const DriverConsole& console) {
    std::vector<stem::LinkSpec> found;
    const stem::ModuleFoundProc collect = [&found](const stem::LinkSpec& spec, bool& success) {
        found.push_back(spec);
        success = true;
        return true;
    };
    const std::uint8_t result = backend->aDiscovery_EnumerateModules(
        stem::LinkType::USB, collect, stem::LOCALHOST_IP_ADDRESS);
    if (result == 0) {
        // The code shown is always 3, whatever discovery answered.
        if (console.log) console.log(formatConsoleText("error getting hubs. Error code %i", 3));
        return {};
    }
    std::vector<std::shared_ptr<AcronameHub>> hubs;
    for (const stem::LinkSpec& spec : found) {
        auto hub = std::make_shared<AcronameHub>(backend, clock, console);
        hub->setModel(spec.model);
        hub->setRouter(spec.router);
        hub->setAcronameModule(spec.module);
        hub->setSerialNumber(spec.serial_num);
        hub->setRouterSerialNumber(spec.router_serial_num);
        hub->setUsbID(spec.usb_id);
        hubs.push_back(std::move(hub));
    }
    return hubs;
}

bool BrainStemWrapper::connect(const std::shared_ptr<AcronameHub>& hub) {
    log("Create an instance of the USBHub3p");
    if (chub->isConnected()) chub->disconnect();
    if (chub->discoverAndConnect(stem::LinkType::USB, hub->serialNumber()) != stem::aErrNone) {
        log("Error connecting");
        setConnectedHub(nullptr);
        return true;
    }
    log("Connected.");
    setConnectedHub(hub);
    discoverPortInfo();
    if (!makeSourceWithNoNegotiation()) log("Error setting to source");
    // Port 0 is where the hub draws its own power; it is stored as a sink only when it had to
    // be changed, so a healthy hub's saved settings are not rewritten on every connect.
    if (!isPowerRoleSinkForPort(0)) {
        log("power role for port 0 is not sink so setting sink and saving");
        if (setPowerRoleToSinkForPort(0)) {
            log("saving");
            save();
        } else {
            log("Error setting to sink for port 0");
        }
    }
    hub->setFirmwareVersion(firmwareVersion());
    return true;
}

bool BrainStemWrapper::makeSourceWithNoNegotiation() {
    const std::uint32_t total = hubTotalPowerLimit();
    if (!isLinkedToHub()) return false;
    // Signed on purpose: a total below 10 gives a negative share, which goes to the hub as a
    // very large unsigned limit.
    const std::int64_t perPort = (static_cast<std::int64_t>(total) - 10) / 6;
    setUnregulatedPowerSupplyMaxWatts(kUnregulatedSupplyMaxWatts);
    for (std::uint8_t port = 1; port <= 5; ++port) {
        if (!setPowerRoleToSourceForPort(port)) return false;
        if (!setPowerLimit(static_cast<std::uint32_t>(perPort), port)) return false;
    }
    return true;
}

std::uint32_t BrainStemWrapper::hubTotalPowerLimit() {
    stem::SystemClass& system = chub->system();
    std::uint8_t source = 0;
    if (hubs_detail::retryTransient([&] { return system.getInputPowerSource(&source); }) !=
        stem::aErrNone) {
        log("error getting getInputPowerSource");
        return 0;
    }
    log(formatConsoleText("source is %hhu", source));
    std::uint32_t limit = 0;
    if (source == kInputPowerSourceUnregulated) {
        if (hubs_detail::retryTransient([&] { return system.getPowerLimitMax(&limit); }) !=
            stem::aErrNone) {
            log("error getting getPowerLimitMax");
            return 0;
        }
        return limit;
    }
    if (source == kInputPowerSourceRegulated) {
        if (hubs_detail::retryTransient([&] { return system.getPowerLimit(&limit); }) !=
            stem::aErrNone) {
            log("error getting hubTotalPowerLimit");
            return 0;
        }
        return limit;
    }
    log(formatConsoleText("invalid power source: %i", source));
    return 0;
}

QString BrainStemWrapper::firmwareVersion() {
    std::uint32_t build = 0;
    const stem::aErr err =
        hubs_detail::retryTransient([&] { return chub->system().getVersion(&build); });
    if (err != stem::aErrNone) {
        log(formatConsoleText("error getting firmwareVersion number: %i", err));
        return QStringLiteral("Unknown");
    }
    char text[kVersionTextLength] = {};
    backend_->aVersion_ParseString(build, text, sizeof text);
    return QString::fromUtf8(text);
}

void BrainStemWrapper::discoverPortInfo() {
    log("discovering port info...");
    const std::shared_ptr<AcronameHub> hub = connectedHub();
    if (!chub->isConnected() || !hub) return;
    log("We are connected. Probing...");
    std::vector<std::shared_ptr<AcronamePort>> ports;
    for (std::uint8_t port = 0; port < kProbedPortCount; ++port)
        ports.push_back(probePort(port, hub.get()));
    hub->setPorts(std::move(ports));
}

std::shared_ptr<AcronamePort> BrainStemWrapper::probePort(std::uint8_t index, AcronameHub* hub) {
    auto port = std::make_shared<AcronamePort>();
    port->setPortID(index);
    port->setHub(hub);
    stem::PortClass& entity = chub->port(index);
    stem::PowerDeliveryClass& pd = chub->pd(index);

    // The words say connected; what is read is the enabled state.
    std::uint8_t enabled = 0;
    const stem::aErr enabledErr = entity.getEnabled(&enabled);
    if (enabledErr != stem::aErrNone) {
        log(formatConsoleText("Port %i Error: %s", index,
                              backend_->aError_GetErrorDescription(enabledErr)));
    } else if (enabled == 1) {
        log(formatConsoleText("Port %i connected", index));
        port->setIsEnabled(true);
    } else {
        log(formatConsoleText("Port %i NOT connected", index));
    }

    std::uint8_t role = 0;
    pd.getPowerRole(&role);

    // A device is present when the cable shows an orientation.
    std::uint8_t orientation = 0;
    if (pd.getCableOrientation(&orientation) != stem::aErrNone) {
        log(formatConsoleText("Invalid orientation for port %i", index));
    } else {
        port->setCableOrientation(orientation);
        port->setIsConnected(orientation != 0);
        log(formatConsoleText("orientation correct for port %i", index));
    }

    std::int32_t value = 0;
    stem::aErr err = entity.getVbusVoltage(&value);
    port->setVBusVoltage(microUnits(err, value));
    value = 0;
    err = entity.getVbusCurrent(&value);
    port->setVBusCurrent(microUnits(err, value));
    value = 0;
    err = entity.getVconnVoltage(&value);
    port->setVConnVoltage(microUnits(err, value));
    value = 0;
    err = entity.getVconnCurrent(&value);
    port->setVConnCurrent(microUnits(err, value));
    return port;
}
