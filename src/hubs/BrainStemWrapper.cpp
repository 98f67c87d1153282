#include "hubs/BrainStemWrapper.h"

#include "hubs/AcronameHub.h"
#include "hubs/StemRetry.h"

#include "core/Log.h"

namespace {

constexpr std::uint8_t kPowerModeStandardDownstream = 1;
constexpr std::uint8_t kPowerModeChargingDownstream = 2;
constexpr std::uint8_t kPowerModePowerDelivery = 4;
constexpr std::uint8_t kPowerRoleSource = 1;
constexpr std::uint8_t kPowerRoleSink = 2;
constexpr std::uint32_t kOverrideNoNegotiation = 2;

}  // namespace

BrainStemWrapper::BrainStemWrapper(std::shared_ptr<stem::Backend> backend, DriverConsole console)
    : backend_(std::move(backend)),
      console_(std::move(console)),
      chub(backend_->createUSBHub3c(stem::kUSBHub3cDefaultAddress, true,
                                    stem::aMODULE_TYPE_USBHub3c)) {}

BrainStemWrapper::~BrainStemWrapper() = default;

std::shared_ptr<AcronameHub> BrainStemWrapper::connectedHub() const {
    std::lock_guard lock(hubMutex_);
    return connectedHub_;
}

void BrainStemWrapper::setConnectedHub(std::shared_ptr<AcronameHub> hub) {
    std::shared_ptr<AcronameHub> previous;
    {
        std::lock_guard lock(hubMutex_);
        previous = std::exchange(connectedHub_, std::move(hub));
    }
}

void BrainStemWrapper::print(const std::string& text) const {
    if (console_.print)
        console_.print(text);
}

void BrainStemWrapper::log(const std::string& text) const {
    if (console_.log)
        console_.log(text);
}

bool BrainStemWrapper::isLinkedToHub() {
    return chub->isConnected() && connectedHub() != nullptr;
}

bool BrainStemWrapper::connect() {
    chub->discoverAndConnect(stem::LinkType::USB, 0);
    return true;
}

bool BrainStemWrapper::isConnected() {
    log("Create an instance of the USBHub3p");
    return chub->isConnected();
}

bool BrainStemWrapper::disconnect() {
    log("disconnecting in BrainStemWrapper");
    if (chub->disconnect() == stem::aErrNone)
        print("disconnected from hub\n");
    return true;
}

void BrainStemWrapper::save() {
    hubs_detail::retryTransient([&] { return chub->system().save(); });
}

void BrainStemWrapper::toggleLED() {
    std::uint8_t on = 0;
    chub->system().getLED(&on);
    chub->system().setLED(on == 0 ? 1 : 0);
}

void BrainStemWrapper::rebootHub() {
    chub->system().reset();
}

// Logs each busy answer to a port command: a port that needed retries leaves a trace.
std::function<void(int)> BrainStemWrapper::busyLog(const char* command, std::uint8_t port) const {
    return [this, command, port](int attempt) {
        const auto hub = connectedHub();
        const QString what = QStringLiteral("hub %1 port %2: %3 answered busy (result 3)")
                                 .arg(hub ? hub->modelName() : QStringLiteral("?"))
                                 .arg(port)
                                 .arg(QLatin1String(command));
        ZMRLogLevel1(attempt < hubs_detail::kTransientAttempts
                         ? QStringLiteral("%1, trying again (%2 of %3)")
                               .arg(what)
                               .arg(attempt + 1)
                               .arg(hubs_detail::kTransientAttempts)
                         : QStringLiteral("%1 %2 times, giving up")
                               .arg(what)
                               .arg(hubs_detail::kTransientAttempts));
    };
}

namespace {

// The last port call this thread made, and on which hub's driver.
struct PortCallOnThisThread {
    const BrainStemWrapper* wrapper = nullptr;
    std::int32_t result = -1;
};
thread_local PortCallOnThisThread lastPortCall;

}  // namespace

void BrainStemWrapper::notePortResult(stem::aErr err) {
    lastPortResult_ = static_cast<std::int32_t>(err);
    lastPortCall = {this, static_cast<std::int32_t>(err)};
}

std::int32_t BrainStemWrapper::lastPortResult() const {
    return lastPortCall.wrapper == this ? lastPortCall.result : lastPortResult_.load();
}

bool BrainStemWrapper::enablePort(std::uint8_t port) {
    const stem::aErr err = hubs_detail::retryTransient(
        [&] { return chub->port(port).setEnabled(1); }, busyLog("enable", port));
    notePortResult(err);
    print(formatConsoleText("Enable port %d, Err: %d\n", port, err));
    return err == stem::aErrNone;
}

bool BrainStemWrapper::disablePort(std::uint8_t port) {
    const stem::aErr err = hubs_detail::retryTransient(
        [&] { return chub->port(port).setEnabled(0); }, busyLog("disable", port));
    notePortResult(err);
    print(formatConsoleText("Disable port %d, Err: %d\n", port, err));
    return err == stem::aErrNone;
}

bool BrainStemWrapper::setPowerLimit(std::uint32_t limit, std::uint8_t port) {
    const stem::aErr err =
        hubs_detail::retryTransient([&] { return chub->port(port).setPowerLimit(limit); });
    print(formatConsoleText("setPowerLimit %d, Err: %d\n", port, err));
    return err == stem::aErrNone;
}

bool BrainStemWrapper::setUnregulatedPowerSupplyMaxWatts(std::uint32_t watts) {
    const stem::aErr err =
        hubs_detail::retryTransient([&] { return chub->system().setPowerLimitMax(watts * 1000); });
    return err == stem::aErrNone;
}

bool BrainStemWrapper::setPowerModeStandardDownstreamForPort(std::uint8_t port) {
    return setPowerMode(port, kPowerModeStandardDownstream);
}

bool BrainStemWrapper::setPowerModeChargingDownstreamForPort(std::uint8_t port) {
    return setPowerMode(port, kPowerModeChargingDownstream);
}

bool BrainStemWrapper::setPowerModePowerDeliveryForPort(std::uint8_t port) {
    return setPowerMode(port, kPowerModePowerDelivery);
}

bool BrainStemWrapper::setPowerMode(std::uint8_t port, std::uint8_t mode) {
    stem::PortClass& entity = chub->port(port);
    if (hubs_detail::retryTransient([&] { return entity.setPowerMode(mode); },
                                    busyLog("power mode", port)) != stem::aErrNone)
        return false;
    // The value read back is not compared: the read only shows that the port still answers.
    std::uint8_t readBack = 0;
    if (hubs_detail::retryTransient([&] { return entity.getPowerMode(&readBack); }) !=
        stem::aErrNone)
        return false;
    // Charging shares the standard words on purpose: both are plain downstream modes.
    if (mode == kPowerModePowerDelivery)
        print(formatConsoleText("Set port %d power mode to Power Delivery, Err: %d\n", port, 0));
    else
        print(
            formatConsoleText("Set port %d power mode to standard downstream, Err: %d\n", port, 0));
    return true;
}

std::optional<bool> BrainStemWrapper::portEnabled(std::uint8_t port) {
    std::uint8_t enabled = 0;
    if (hubs_detail::retryTransient([&] { return chub->port(port).getEnabled(&enabled); }) !=
        stem::aErrNone)
        return std::nullopt;
    return enabled != 0;
}

bool BrainStemWrapper::inPDMode(std::uint8_t port) {
    std::uint8_t mode = 0;
    const stem::aErr err =
        hubs_detail::retryTransient([&] { return chub->port(port).getPowerMode(&mode); });
    if (err != stem::aErrNone) {
        log("error getting power role");
        return false;
    }
    if (mode != kPowerModePowerDelivery)
        return false;
    print(formatConsoleText("in PD mode for power %d: %d\n", port, 0));
    return true;
}

bool BrainStemWrapper::setPowerRoleToSourceForPort(std::uint8_t port) {
    return setPowerRole(port, kPowerRoleSource);
}

bool BrainStemWrapper::setPowerRoleToSinkForPort(std::uint8_t port) {
    return setPowerRole(port, kPowerRoleSink);
}

bool BrainStemWrapper::setPowerRole(std::uint8_t port, std::uint8_t role) {
    const stem::aErr err =
        hubs_detail::retryTransient([&] { return chub->pd(port).setPowerRole(role); });
    print(formatConsoleText("Enable port %d, Err: %d\n", port, err));
    if (err != stem::aErrNone) {
        log("error setting power role");
        return false;
    }
    // The sink role is reported in the source words too.
    print(formatConsoleText("Set port %d power mode to source only, Err: %d\n", port, 0));
    return true;
}

bool BrainStemWrapper::isPowerRoleSinkForPort(std::uint8_t port) {
    std::uint8_t role = 0;
    hubs_detail::retryTransient([&] { return chub->pd(port).getPowerRole(&role); });
    return role == kPowerRoleSink;
}

bool BrainStemWrapper::turnOffPortNegotiationForPort(std::uint8_t port) {
    const stem::aErr err = hubs_detail::retryTransient(
        [&] { return chub->pd(port).setOverride(kOverrideNoNegotiation); });
    print(formatConsoleText("Enable port %d, Err: %d\n", port, err));
    return err == stem::aErrNone;
}

bool BrainStemWrapper::rebootPort(std::uint8_t port) {
    return sendVendorMessage(port, kRebootMessage);
}

bool BrainStemWrapper::dfuPort(std::uint8_t port) {
    return sendVendorMessage(port, kDFUMessage);
}

bool BrainStemWrapper::sendVendorMessage(std::uint8_t port,
                                         const std::array<std::uint8_t, 16>& message) {
    const stem::aErr err = hubs_detail::retryTransient(
        [&] {
            return chub->pd(port).setUEIBytes(kVendorMessageOption, message.data(), message.size());
        },
        busyLog(message == kDFUMessage ? "DFU message" : "reboot message", port));
    notePortResult(err);
    // Both messages report in the DFU words.
    print(formatConsoleText("DFU port %d, Err: %d\n", port, err));
    return err == stem::aErrNone;
}
