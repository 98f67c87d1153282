#include "hubs/AcronameHub.h"

#include "hubs/BrainStemWrapper.h"

#include "core/HubPortName.h"

namespace {

std::uint8_t portByte(std::int64_t port) {
    return static_cast<std::uint8_t>(port);
}

}  // namespace

AcronameHub::AcronameHub(std::shared_ptr<stem::Backend> backend, core::Clock& clock,
                         DriverConsole console)
    : backend_(std::move(backend)), clock_(clock), console_(std::move(console)) {}

AcronameHub::~AcronameHub() = default;

#define TARVEL_HUB_PROPERTY(Type, getter, setter, member) \
    Type AcronameHub::getter() const {                    \
        std::lock_guard lock(mutex_);                     \
        return member;                                    \
    }                                                     \
    void AcronameHub::setter(Type value) {                \
        std::lock_guard lock(mutex_);                     \
        member = std::move(value);                        \
    }

TARVEL_HUB_PROPERTY(std::uint32_t, model, setModel, model_)
TARVEL_HUB_PROPERTY(std::uint32_t, acronameModule, setAcronameModule, acronameModule_)
TARVEL_HUB_PROPERTY(std::uint32_t, serialNumber, setSerialNumber, serialNumber_)
TARVEL_HUB_PROPERTY(std::uint32_t, router, setRouter, router_)
TARVEL_HUB_PROPERTY(std::uint32_t, routerSerialNumber, setRouterSerialNumber, routerSerialNumber_)
TARVEL_HUB_PROPERTY(std::uint32_t, usbID, setUsbID, usbID_)
TARVEL_HUB_PROPERTY(std::uint32_t, powerMax, setPowerMax, powerMax_)
TARVEL_HUB_PROPERTY(std::vector<std::shared_ptr<AcronamePort>>, ports, setPorts, ports_)
TARVEL_HUB_PROPERTY(std::shared_ptr<BrainStemWrapper>, brainStemWrapper, setBrainStemWrapper,
                    brainStemWrapper_)

#undef TARVEL_HUB_PROPERTY

QString AcronameHub::firmwareVersion() const {
    std::lock_guard lock(mutex_);
    return firmwareVersion_;
}

void AcronameHub::setFirmwareVersion(const QString& value) {
    std::lock_guard lock(mutex_);
    firmwareVersion_ = value;
}

QString AcronameHub::description() const {
    std::lock_guard lock(mutex_);
    // The module slot shows the model; the module address is not part of the text.
    return QStringLiteral("model: %1, router: %2, module: %3, serial: %4, routerSerial: %5, usbID: %6")
        .arg(model_)
        .arg(router_)
        .arg(model_)
        .arg(serialNumber_)
        .arg(routerSerialNumber_)
        .arg(usbID_);
}

QString AcronameHub::modelName() const {
    return core::hubName(serialNumber());
}

void AcronameHub::setConsole(DriverConsole console) {
    std::lock_guard lock(mutex_);
    console_ = std::move(console);
    if (brainStemWrapper_) brainStemWrapper_->setConsole(console_);
}

bool AcronameHub::connect() {
    std::shared_ptr<BrainStemWrapper> wrapper;
    {
        std::lock_guard lock(mutex_);
        if (!brainStemWrapper_)
            brainStemWrapper_ = std::make_shared<BrainStemWrapper>(backend_, console_);
        wrapper = brainStemWrapper_;
    }
    return wrapper->connect(shared_from_this());
}

bool AcronameHub::disconnect() {
    // The driver may hold the last reference to this hub; keep it alive until we are done.
    const auto self = shared_from_this();
    std::shared_ptr<BrainStemWrapper> dropped;
    {
        std::lock_guard lock(mutex_);
        dropped = std::move(brainStemWrapper_);
    }
    if (dropped) dropped->disconnect();
    return true;
}

bool AcronameHub::isConnected() const {
    const auto wrapper = brainStemWrapper();
    return wrapper && wrapper->isConnected();
}

void AcronameHub::restartHub() {}

void AcronameHub::rebootHub() {
    if (const auto wrapper = brainStemWrapper()) wrapper->rebootHub();
}

void AcronameHub::toggleLED() {
    if (const auto wrapper = brainStemWrapper()) wrapper->toggleLED();
}

void AcronameHub::yield() {
    clock_.sleepMicroseconds(0);
}

bool AcronameHub::rebootPort(std::int64_t port) {
    yield();
    const auto wrapper = brainStemWrapper();
    return wrapper && wrapper->rebootPort(portByte(port));
}

bool AcronameHub::dfuPort(std::int64_t port) {
    yield();
    const auto wrapper = brainStemWrapper();
    return wrapper && wrapper->dfuPort(portByte(port));
}

bool AcronameHub::disablePort(std::int64_t port) {
    yield();
    const auto wrapper = brainStemWrapper();
    return wrapper && wrapper->disablePort(portByte(port));
}

bool AcronameHub::enablePort(std::int64_t port) {
    yield();
    const auto wrapper = brainStemWrapper();
    return wrapper && wrapper->enablePort(portByte(port));
}

bool AcronameHub::setPowerModeChargingDownstreamForPort(std::int64_t port) {
    yield();
    const auto wrapper = brainStemWrapper();
    return wrapper && wrapper->setPowerModeChargingDownstreamForPort(portByte(port));
}

bool AcronameHub::setPowerModeStandardDownstreamForPort(std::int64_t port) {
    yield();
    const auto wrapper = brainStemWrapper();
    return wrapper && wrapper->setPowerModeStandardDownstreamForPort(portByte(port));
}

bool AcronameHub::setPowerModePowerDeliveryForPort(std::int64_t port) {
    yield();
    const auto wrapper = brainStemWrapper();
    return wrapper && wrapper->setPowerModePowerDeliveryForPort(portByte(port));
}

bool AcronameHub::inPDModeForPort(std::int64_t port) {
    const auto wrapper = brainStemWrapper();
    return wrapper && wrapper->inPDMode(portByte(port));
}

std::optional<bool> AcronameHub::portEnabled(std::int64_t port) {
    const auto wrapper = brainStemWrapper();
    return wrapper ? wrapper->portEnabled(portByte(port)) : std::nullopt;
}

std::int64_t AcronameHub::lastPortResult() const {
    const auto wrapper = brainStemWrapper();
    return wrapper ? wrapper->lastPortResult() : -1;
}

bool AcronameHub::setPowerLimit(std::uint32_t limit, std::int64_t port) {
    const auto wrapper = brainStemWrapper();
    return wrapper && wrapper->setPowerLimit(limit, portByte(port));
}
