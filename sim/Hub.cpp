#include "Hub.h"

#include "Mac.h"

namespace sim {

namespace {

std::optional<qint64> argument(const QJsonObject& arguments, qint64 maximum) {
    const QJsonValue value = arguments.value(QLatin1String("value"));
    if (!value.isDouble())
        return std::nullopt;
    const qint64 number = value.toInteger(-1);
    if (number < 0 || number > maximum)
        return std::nullopt;
    return number;
}

StemAnswer badArgument() {
    return {code::param, std::nullopt, QStringLiteral("missing or invalid \"value\"")};
}
StemAnswer done() {
    return {};
}
StemAnswer read(qint64 value) {
    return {code::none, value, QString()};
}

}  // namespace

Hub::Hub(HubConfig config, int number, Scheduler& scheduler, const Timing& timing,
         std::function<void()> changed)
    : config_(std::move(config)),
      number_(number),
      scheduler_(scheduler),
      timing_(timing),
      changed_(std::move(changed)),
      faults_(config_.faults) {
    // Port 0 is where the hub draws its own power.
    settings_.ports[0].powerRole = 2;
    settings_.powerLimitMax = config_.powerLimitMax;
    saved_ = settings_;
}

void Hub::setPresent(bool present) {
    if (present_ == present)
        return;
    present_ = present;
    if (!present)
        links_.clear();
    changed_();
}

QJsonObject Hub::linkSpec() const {
    return {{QStringLiteral("type"), 1},
            {QStringLiteral("serial_num"), static_cast<qint64>(config_.serial)},
            {QStringLiteral("module"), 6},
            {QStringLiteral("router"), 6},
            {QStringLiteral("router_serial_num"), static_cast<qint64>(config_.serial)},
            {QStringLiteral("model"), 24},
            {QStringLiteral("usb_id"), static_cast<qint64>(config_.usbId)}};
}

QStringList Hub::faultableCalls() {
    QStringList calls{QStringLiteral("connect")};
    for (const char* name : {"getEnabled", "setEnabled", "getPowerMode", "setPowerMode",
                             "getPowerLimit", "setPowerLimit", "getVbusVoltage", "getVbusCurrent",
                             "getVconnVoltage", "getVconnCurrent"})
        calls << QStringLiteral("port.") + QLatin1String(name);
    for (const char* name : {"getPowerRole", "setPowerRole", "getOverride", "setOverride",
                             "getCableOrientation", "setUEIBytes"})
        calls << QStringLiteral("pd.") + QLatin1String(name);
    for (const char* name :
         {"save", "reset", "getLED", "setLED", "getVersion", "getInputPowerSource", "getPowerLimit",
          "getPowerLimitMax", "setPowerLimitMax"})
        calls << QStringLiteral("system.") + QLatin1String(name);
    return calls;
}

StemAnswer Hub::call(const QString& method, int index, const QJsonObject& arguments) {
    const qsizetype dot = method.indexOf(u'.');
    const QString entity = method.left(dot);
    const QString name = method.mid(dot + 1);
    if (entity == QLatin1String("system"))
        return systemCall(name, arguments);
    if (entity != QLatin1String("port") && entity != QLatin1String("pd"))
        return {code::unimplemented, std::nullopt, QStringLiteral("unknown entity ") + entity};
    if (index < 0 || index >= entityCount)
        return {code::indexRange, std::nullopt, QStringLiteral("entity index must be 0 to 7")};
    PortState& port = settings_.ports[static_cast<std::size_t>(index)];
    return entity == QLatin1String("port") ? portCall(name, port, index, arguments)
                                           : pdCall(name, port, index, arguments);
}

StemAnswer Hub::portCall(const QString& name, PortState& port, int index,
                         const QJsonObject& arguments) {
    if (name == QLatin1String("getEnabled"))
        return read(port.enabled ? 1 : 0);
    if (name == QLatin1String("setEnabled")) {
        const auto value = argument(arguments, 255);
        if (!value)
            return badArgument();
        setPortEnabled(index, *value != 0);
        return done();
    }
    if (name == QLatin1String("getPowerMode"))
        return read(port.powerMode);
    if (name == QLatin1String("setPowerMode")) {
        const auto value = argument(arguments, 255);
        if (!value)
            return badArgument();
        if (*value > 4)
            return {code::range, std::nullopt, QStringLiteral("power modes are 0 to 4")};
        if (port.powerMode != *value)
            startNegotiating(index);
        port.powerMode = static_cast<std::uint8_t>(*value);
        changed_();
        return done();
    }
    if (name == QLatin1String("getPowerLimit"))
        return read(port.powerLimit);
    if (name == QLatin1String("setPowerLimit")) {
        const auto value = argument(arguments, 0xFFFFFFFF);
        if (!value)
            return badArgument();
        port.powerLimit = static_cast<std::uint32_t>(*value);
        return done();
    }
    if (name == QLatin1String("getVbusVoltage"))
        return read(vbusVoltage(index));
    if (name == QLatin1String("getVbusCurrent"))
        return read(vbusCurrent(index));
    const bool vconn = poweredMac(index) != nullptr;
    if (name == QLatin1String("getVconnVoltage"))
        return read(vconn ? 5000000 : 0);
    if (name == QLatin1String("getVconnCurrent"))
        return read(vconn ? 10000 : 0);
    return {code::unimplemented, std::nullopt, QStringLiteral("unknown port call ") + name};
}

StemAnswer Hub::pdCall(const QString& name, PortState& port, int index,
                       const QJsonObject& arguments) {
    if (name == QLatin1String("getPowerRole"))
        return read(port.powerRole);
    if (name == QLatin1String("setPowerRole")) {
        const auto value = argument(arguments, 255);
        if (!value)
            return badArgument();
        if (*value > 3)
            return {code::range, std::nullopt, QStringLiteral("power roles are 0 to 3")};
        if (port.powerRole != *value)
            startNegotiating(index);
        port.powerRole = static_cast<std::uint8_t>(*value);
        return done();
    }
    if (name == QLatin1String("getOverride"))
        return read(port.override);
    if (name == QLatin1String("setOverride")) {
        const auto value = argument(arguments, 0xFFFFFFFF);
        if (!value)
            return badArgument();
        port.override = static_cast<std::uint32_t>(*value);
        return done();
    }
    if (name == QLatin1String("getCableOrientation"))
        return read(cableOrientation(index));
    if (name == QLatin1String("setUEIBytes")) {
        if (arguments.value(QLatin1String("option")).toInt(-1) != 48)
            return {code::invalidOption, std::nullopt,
                    QStringLiteral("only option 48 carries a message")};
        const QByteArray bytes =
            QByteArray::fromHex(arguments.value(QLatin1String("bytes")).toString().toLatin1());
        if (bytes.size() != 16)
            return {code::size, std::nullopt, QStringLiteral("a vendor message is 16 bytes")};
        // Without a contract the message is never delivered, yet the hub reports it sent, as
        // the wire gives no acknowledgement back.
        if (Mac* mac = macAt(index); mac != nullptr && hasContract(index))
            mac->receive(classifyVendorMessage(bytes));
        return done();
    }
    return {code::unimplemented, std::nullopt,
            QStringLiteral("unknown power-delivery call ") + name};
}

StemAnswer Hub::systemCall(const QString& name, const QJsonObject& arguments) {
    if (name == QLatin1String("save")) {
        saved_ = settings_;
        return done();
    }
    if (name == QLatin1String("reset")) {
        reset();
        return done();
    }
    if (name == QLatin1String("getLED"))
        return read(settings_.led);
    if (name == QLatin1String("setLED")) {
        const auto value = argument(arguments, 255);
        if (!value)
            return badArgument();
        settings_.led = static_cast<std::uint8_t>(*value);
        return done();
    }
    if (name == QLatin1String("getVersion"))
        return read(config_.firmware);
    if (name == QLatin1String("getInputPowerSource"))
        return read(config_.inputPowerSource);
    if (name == QLatin1String("getPowerLimit"))
        return read(config_.powerLimit);
    if (name == QLatin1String("getPowerLimitMax"))
        return read(settings_.powerLimitMax);
    if (name == QLatin1String("setPowerLimitMax")) {
        const auto value = argument(arguments, 0xFFFFFFFF);
        if (!value)
            return badArgument();
        settings_.powerLimitMax = static_cast<std::uint32_t>(*value);
        return done();
    }
    return {code::unimplemented, std::nullopt, QStringLiteral("unknown system call ") + name};
}

void Hub::plugIn(int port, Mac* mac) {
    attach(port, mac);
    startNegotiating(port);
    mac->setPowered(present_ && settings_.ports[static_cast<std::size_t>(port)].enabled);
    changed_();
}

void Hub::pullOut(int port) {
    attach(port, nullptr);
    changed_();
}

void Hub::setPortEnabled(int index, bool enabled) {
    PortState& port = settings_.ports[static_cast<std::size_t>(index)];
    if (enabled && !port.enabled)
        startNegotiating(index);
    port.enabled = enabled;
    if (Mac* mac = macAt(index))
        mac->setPowered(enabled);
    changed_();
}

void Hub::reset() {
    // A reset drops the hub and everything behind it; it comes back as it was last saved.
    present_ = false;
    links_.clear();
    for (Mac* mac : macs_)
        if (mac != nullptr)
            mac->setPowered(false);
    changed_();
    scheduler_.cancel(resetTimer_);
    resetTimer_ = scheduler_.after(timing_.hubResetSeconds, [this] {
        resetTimer_ = 0;
        settings_ = saved_;
        for (int port = 0; port < entityCount; ++port) startNegotiating(port);
        present_ = true;
        for (int port = 0; port < entityCount; ++port)
            if (Mac* mac = macAt(port))
                mac->setPowered(settings_.ports[static_cast<std::size_t>(port)].enabled);
        changed_();
    });
}

const Mac* Hub::poweredMac(int index) const {
    const Mac* mac = macAt(index);
    return mac != nullptr && settings_.ports[static_cast<std::size_t>(index)].enabled ? mac
                                                                                      : nullptr;
}

void Hub::startNegotiating(int index) {
    settings_.ports[static_cast<std::size_t>(index)].negotiatingSince = scheduler_.now();
}

// A power-delivery contract needs the port to source power in power-delivery mode to a powered
// Mac, for long enough to negotiate; only then do vendor messages travel.
bool Hub::hasContract(int index) const {
    const PortState& port = settings_.ports[static_cast<std::size_t>(index)];
    const bool sourcing = port.powerRole == 1 || port.powerRole == 3;
    return poweredMac(index) != nullptr && sourcing && port.powerMode == 4 &&
           scheduler_.now() - port.negotiatingSince >= timing_.pdContractSeconds;
}

qint64 Hub::vbusVoltage(int index) const {
    const PortState& port = settings_.ports[static_cast<std::size_t>(index)];
    if (!port.enabled)
        return 0;
    if (index == 0)
        return 20000000;
    if (poweredMac(index) == nullptr)
        return 0;
    // Without a contract a port stays at the USB default of 5 V.
    return hasContract(index) && port.override == 0 ? 20000000 : 5000000;
}

qint64 Hub::vbusCurrent(int index) const {
    if (index == 0)
        return settings_.ports[0].enabled ? 1250000 : 0;
    const Mac* mac = poweredMac(index);
    if (mac == nullptr)
        return 0;
    if (mac->startingUp())
        return 900000;
    switch (mac->state()) {
        case MacState::Booted:
            return 450000;
        case MacState::Off:
            return 0;
        default:
            return 150000;
    }
}

std::uint8_t Hub::cableOrientation(int index) const {
    if (!settings_.ports[static_cast<std::size_t>(index)].enabled)
        return 0;
    if (index == 0)
        return 1;
    return poweredMac(index) != nullptr ? static_cast<std::uint8_t>(index % 2 == 1 ? 1 : 2) : 0;
}

}  // namespace sim
