#include "hubs/stem/SimulatorModule.h"

#include "core/SimulatorConnection.h"

#include <limits>

namespace stem {

namespace {

template <typename T>
aErr getInto(SimulatorModule& module, const char* method, std::optional<std::uint8_t> index,
             T* out) {
    qint64 value = 0;
    const aErr result = module.call(method, index, {}, &value);
    if (result == aErrNone && out != nullptr)
        *out = static_cast<T>(value);
    return result;
}

QJsonObject valued(qint64 value) {
    return {{QStringLiteral("value"), value}};
}

}  // namespace

SimulatorModule::SimulatorModule(std::shared_ptr<core::SimulatorConnection> connection)
    : connection_(std::move(connection)), system_(*this) {
    for (std::uint8_t i = 0; i <= kEntityCount; ++i) {
        ports_[i] = std::make_unique<SimulatorPort>(*this, i);
        pds_[i] = std::make_unique<SimulatorPowerDelivery>(*this, i);
    }
}

aErr SimulatorModule::call(const char* method, std::optional<std::uint8_t> index,
                           QJsonObject arguments, qint64* value) {
    arguments.insert(QStringLiteral("serial"), static_cast<qint64>(serial_.load()));
    arguments.insert(QStringLiteral("link"), static_cast<qint64>(link_.load()));
    if (index)
        arguments.insert(QStringLiteral("index"), *index);
    const auto reply =
        connection_->request(QStringLiteral("stem.") + QLatin1String(method), arguments);
    if (!reply)
        return aErrConnection;
    const qint64 result = reply->value(QLatin1String("result")).toInteger(aErrUnknown);
    if (value != nullptr && result == aErrNone)
        *value = reply->value(QLatin1String("value")).toInteger();
    return result < 0 || result > std::numeric_limits<aErr>::max() ? aErrUnknown
                                                                   : static_cast<aErr>(result);
}

aErr SimulatorModule::discoverAndConnect(LinkType type, std::uint32_t serialNumber) {
    const auto reply =
        connection_->request(QStringLiteral("stem.connect"),
                             {{QStringLiteral("linkType"), static_cast<int>(type)},
                              {QStringLiteral("serial"), static_cast<qint64>(serialNumber)}});
    if (!reply)
        return aErrConnection;
    const aErr result =
        static_cast<aErr>(reply->value(QLatin1String("result")).toInteger(aErrUnknown));
    if (result == aErrNone) {
        serial_ = static_cast<std::uint32_t>(reply->value(QLatin1String("serial")).toInteger());
        link_ = static_cast<std::uint64_t>(reply->value(QLatin1String("link")).toInteger());
        linked_ = true;
    }
    return result;
}

bool SimulatorModule::isConnected() {
    if (!linked_)
        return false;
    const auto reply =
        connection_->request(QStringLiteral("stem.isConnected"),
                             {{QStringLiteral("serial"), static_cast<qint64>(serial_.load())},
                              {QStringLiteral("link"), static_cast<qint64>(link_.load())}});
    return reply && reply->value(QLatin1String("connected")).toBool();
}

aErr SimulatorModule::disconnect() {
    linked_ = false;
    const aErr result = call("disconnect", std::nullopt, {});
    link_ = 0;
    return result;
}

PortClass& SimulatorModule::port(std::uint8_t index) {
    return *ports_[index < kEntityCount ? index : kEntityCount];
}

PowerDeliveryClass& SimulatorModule::pd(std::uint8_t index) {
    return *pds_[index < kEntityCount ? index : kEntityCount];
}

aErr SimulatorPort::setEnabled(std::uint8_t enable) {
    return module_.call("port.setEnabled", index_, valued(enable));
}
aErr SimulatorPort::getEnabled(std::uint8_t* enabled) {
    return getInto(module_, "port.getEnabled", index_, enabled);
}
aErr SimulatorPort::setPowerMode(std::uint8_t mode) {
    return module_.call("port.setPowerMode", index_, valued(mode));
}
aErr SimulatorPort::getPowerMode(std::uint8_t* mode) {
    return getInto(module_, "port.getPowerMode", index_, mode);
}
aErr SimulatorPort::setPowerLimit(std::uint32_t milliwatts) {
    return module_.call("port.setPowerLimit", index_, valued(milliwatts));
}
aErr SimulatorPort::getVbusVoltage(std::int32_t* microvolts) {
    return getInto(module_, "port.getVbusVoltage", index_, microvolts);
}
aErr SimulatorPort::getVbusCurrent(std::int32_t* microamperes) {
    return getInto(module_, "port.getVbusCurrent", index_, microamperes);
}
aErr SimulatorPort::getVconnVoltage(std::int32_t* microvolts) {
    return getInto(module_, "port.getVconnVoltage", index_, microvolts);
}
aErr SimulatorPort::getVconnCurrent(std::int32_t* microamperes) {
    return getInto(module_, "port.getVconnCurrent", index_, microamperes);
}

aErr SimulatorPowerDelivery::setPowerRole(std::uint8_t role) {
    return module_.call("pd.setPowerRole", index_, valued(role));
}
aErr SimulatorPowerDelivery::getPowerRole(std::uint8_t* role) {
    return getInto(module_, "pd.getPowerRole", index_, role);
}
aErr SimulatorPowerDelivery::setOverride(std::uint32_t overrides) {
    return module_.call("pd.setOverride", index_, valued(overrides));
}
aErr SimulatorPowerDelivery::getCableOrientation(std::uint8_t* orientation) {
    return getInto(module_, "pd.getCableOrientation", index_, orientation);
}

aErr SimulatorPowerDelivery::setUEIBytes(std::uint8_t option, const std::uint8_t* buffer,
                                         std::size_t length) {
    if (buffer == nullptr && length > 0)
        return aErrParam;
    const QByteArray bytes(reinterpret_cast<const char*>(buffer), static_cast<qsizetype>(length));
    return module_.call("pd.setUEIBytes", index_,
                        {{QStringLiteral("option"), option},
                         {QStringLiteral("bytes"), QString::fromLatin1(bytes.toHex())}});
}

aErr SimulatorSystem::save() {
    return module_.call("system.save", std::nullopt, {});
}
aErr SimulatorSystem::reset() {
    return module_.call("system.reset", std::nullopt, {});
}
aErr SimulatorSystem::setLED(std::uint8_t on) {
    return module_.call("system.setLED", std::nullopt, valued(on));
}
aErr SimulatorSystem::getLED(std::uint8_t* on) {
    return getInto(module_, "system.getLED", std::nullopt, on);
}
aErr SimulatorSystem::getVersion(std::uint32_t* build) {
    return getInto(module_, "system.getVersion", std::nullopt, build);
}
aErr SimulatorSystem::setPowerLimitMax(std::uint32_t milliwatts) {
    return module_.call("system.setPowerLimitMax", std::nullopt, valued(milliwatts));
}
aErr SimulatorSystem::getPowerLimitMax(std::uint32_t* milliwatts) {
    return getInto(module_, "system.getPowerLimitMax", std::nullopt, milliwatts);
}
aErr SimulatorSystem::getPowerLimit(std::uint32_t* milliwatts) {
    return getInto(module_, "system.getPowerLimit", std::nullopt, milliwatts);
}
aErr SimulatorSystem::getInputPowerSource(std::uint8_t* source) {
    return getInto(module_, "system.getInputPowerSource", std::nullopt, source);
}

}  // namespace stem
