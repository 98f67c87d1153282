#include "FakeStem.h"

#include <algorithm>

namespace testing_support {

namespace {

class FakeModule;

// One entity object per index, each forwarding to the module's state of the connected hub.
class FakePort final : public stem::PortClass {
public:
    FakePort(FakeModule& module, int index) : module_(module), index_(index) {}
    stem::aErr setEnabled(std::uint8_t v) override;
    stem::aErr getEnabled(std::uint8_t* v) override;
    stem::aErr setPowerMode(std::uint8_t v) override;
    stem::aErr getPowerMode(std::uint8_t* v) override;
    stem::aErr setPowerLimit(std::uint32_t v) override;
    stem::aErr getVbusVoltage(std::int32_t* v) override;
    stem::aErr getVbusCurrent(std::int32_t* v) override;
    stem::aErr getVconnVoltage(std::int32_t* v) override;
    stem::aErr getVconnCurrent(std::int32_t* v) override;

private:
    template <typename Apply>
    stem::aErr run(const char* name, Apply apply);
    FakeModule& module_;
    int index_;
};

class FakePowerDelivery final : public stem::PowerDeliveryClass {
public:
    FakePowerDelivery(FakeModule& module, int index) : module_(module), index_(index) {}
    stem::aErr setPowerRole(std::uint8_t v) override;
    stem::aErr getPowerRole(std::uint8_t* v) override;
    stem::aErr setOverride(std::uint32_t v) override;
    stem::aErr getCableOrientation(std::uint8_t* v) override;
    stem::aErr setUEIBytes(std::uint8_t option, const std::uint8_t* buffer,
                           std::size_t length) override;

private:
    template <typename Apply>
    stem::aErr run(const char* name, Apply apply);
    FakeModule& module_;
    int index_;
};

class FakeSystem final : public stem::SystemClass {
public:
    explicit FakeSystem(FakeModule& module) : module_(module) {}
    stem::aErr save() override;
    stem::aErr reset() override;
    stem::aErr setLED(std::uint8_t v) override;
    stem::aErr getLED(std::uint8_t* v) override;
    stem::aErr getVersion(std::uint32_t* v) override;
    stem::aErr setPowerLimitMax(std::uint32_t v) override;
    stem::aErr getPowerLimitMax(std::uint32_t* v) override;
    stem::aErr getPowerLimit(std::uint32_t* v) override;
    stem::aErr getInputPowerSource(std::uint8_t* v) override;

private:
    template <typename Apply>
    stem::aErr run(const char* name, Apply apply);
    FakeModule& module_;
};

class FakeModule final : public stem::Module {
public:
    explicit FakeModule(FakeBackend& backend) : backend_(backend), system_(*this) {
        for (int i = 0; i < kEntityCount; ++i) {
            ports_.push_back(std::make_unique<FakePort>(*this, i));
            pds_.push_back(std::make_unique<FakePowerDelivery>(*this, i));
        }
    }

    stem::aErr discoverAndConnect(stem::LinkType, std::uint32_t serialNumber) override {
        const stem::aErr err = backend_.take("discoverAndConnect");
        if (err != stem::aErrNone) return err;
        // Serial number 0 asks for the first hub found.
        if (serialNumber == 0 && !backend_.hubs.empty()) serialNumber = backend_.hubs.begin()->first;
        if (!backend_.hubs.contains(serialNumber)) return stem::aErrNotFound;
        connected_ = &backend_.hubs[serialNumber];
        return stem::aErrNone;
    }
    bool isConnected() override { return connected_ != nullptr; }
    stem::aErr disconnect() override {
        const stem::aErr err = backend_.take("disconnect");
        if (connected_ == nullptr) return stem::aErrConnection;
        connected_ = nullptr;
        return err;
    }
    stem::PortClass& port(std::uint8_t index) override { return *ports_.at(index); }
    stem::PowerDeliveryClass& pd(std::uint8_t index) override { return *pds_.at(index); }
    stem::SystemClass& system() override { return system_; }

    // Records the call; a scripted failure wins, and nothing answers without a link.
    template <typename Apply>
    stem::aErr run(const std::string& name, Apply apply) {
        const stem::aErr err = backend_.take(name);
        if (err != stem::aErrNone) return err;
        if (connected_ == nullptr) return stem::aErrConnection;
        apply(*connected_);
        return stem::aErrNone;
    }

private:
    FakeBackend& backend_;
    FakeHubState* connected_ = nullptr;
    std::vector<std::unique_ptr<FakePort>> ports_;
    std::vector<std::unique_ptr<FakePowerDelivery>> pds_;
    FakeSystem system_;
};

template <typename Apply>
stem::aErr FakePort::run(const char* name, Apply apply) {
    return module_.run("port[" + std::to_string(index_) + "]." + name,
                       [&](FakeHubState& hub) { apply(hub.ports[index_]); });
}
stem::aErr FakePort::setEnabled(std::uint8_t v) {
    return run("setEnabled", [&](auto& p) { p.enabled = v; });
}
stem::aErr FakePort::getEnabled(std::uint8_t* v) {
    return run("getEnabled", [&](auto& p) { *v = p.enabled; });
}
stem::aErr FakePort::setPowerMode(std::uint8_t v) {
    return run("setPowerMode", [&](auto& p) { p.powerMode = v; });
}
stem::aErr FakePort::getPowerMode(std::uint8_t* v) {
    return run("getPowerMode", [&](auto& p) { *v = p.powerMode; });
}
stem::aErr FakePort::setPowerLimit(std::uint32_t v) {
    return run("setPowerLimit", [&](auto& p) { p.powerLimit = v; });
}
stem::aErr FakePort::getVbusVoltage(std::int32_t* v) {
    return run("getVbusVoltage", [&](auto& p) { *v = p.vbusVoltage; });
}
stem::aErr FakePort::getVbusCurrent(std::int32_t* v) {
    return run("getVbusCurrent", [&](auto& p) { *v = p.vbusCurrent; });
}
stem::aErr FakePort::getVconnVoltage(std::int32_t* v) {
    return run("getVconnVoltage", [&](auto& p) { *v = p.vconnVoltage; });
}
stem::aErr FakePort::getVconnCurrent(std::int32_t* v) {
    return run("getVconnCurrent", [&](auto& p) { *v = p.vconnCurrent; });
}

template <typename Apply>
stem::aErr FakePowerDelivery::run(const char* name, Apply apply) {
    return module_.run("pd[" + std::to_string(index_) + "]." + name,
                       [&](FakeHubState& hub) { apply(hub.ports[index_]); });
}
stem::aErr FakePowerDelivery::setPowerRole(std::uint8_t v) {
    return run("setPowerRole", [&](auto& p) { p.powerRole = v; });
}
stem::aErr FakePowerDelivery::getPowerRole(std::uint8_t* v) {
    return run("getPowerRole", [&](auto& p) { *v = p.powerRole; });
}
stem::aErr FakePowerDelivery::setOverride(std::uint32_t v) {
    return run("setOverride", [&](auto& p) { p.override = v; });
}
stem::aErr FakePowerDelivery::getCableOrientation(std::uint8_t* v) {
    return run("getCableOrientation", [&](auto& p) { *v = p.orientation; });
}
stem::aErr FakePowerDelivery::setUEIBytes(std::uint8_t option, const std::uint8_t* buffer,
                                          std::size_t length) {
    return run("setUEIBytes", [&](auto& p) {
        p.lastUEIOption = option;
        p.lastUEIBytes.assign(buffer, buffer + length);
    });
}

template <typename Apply>
stem::aErr FakeSystem::run(const char* name, Apply apply) {
    return module_.run(std::string("system.") + name, apply);
}
stem::aErr FakeSystem::save() {
    return run("save", [](auto& h) { ++h.saves; });
}
stem::aErr FakeSystem::reset() {
    return run("reset", [](auto& h) { ++h.resets; });
}
stem::aErr FakeSystem::setLED(std::uint8_t v) {
    return run("setLED", [&](auto& h) { h.led = v; });
}
stem::aErr FakeSystem::getLED(std::uint8_t* v) {
    return run("getLED", [&](auto& h) { *v = h.led; });
}
stem::aErr FakeSystem::getVersion(std::uint32_t* v) {
    return run("getVersion", [&](auto& h) { *v = h.version; });
}
stem::aErr FakeSystem::setPowerLimitMax(std::uint32_t v) {
    return run("setPowerLimitMax", [&](auto& h) { h.powerLimitMax = v; });
}
stem::aErr FakeSystem::getPowerLimitMax(std::uint32_t* v) {
    return run("getPowerLimitMax", [&](auto& h) { *v = h.powerLimitMax; });
}
stem::aErr FakeSystem::getPowerLimit(std::uint32_t* v) {
    return run("getPowerLimit", [&](auto& h) { *v = h.powerLimit; });
}
stem::aErr FakeSystem::getInputPowerSource(std::uint8_t* v) {
    return run("getInputPowerSource", [&](auto& h) { *v = h.inputPowerSource; });
}

}  // namespace

void FakeBackend::script(const std::string& call, std::deque<stem::aErr> results) {
    std::lock_guard lock(mutex_);
    scripts_[call] = std::move(results);
}

std::vector<std::string> FakeBackend::calls() const {
    std::lock_guard lock(mutex_);
    return calls_;
}

int FakeBackend::count(const std::string& call) const {
    std::lock_guard lock(mutex_);
    return static_cast<int>(std::count(calls_.begin(), calls_.end(), call));
}

stem::aErr FakeBackend::take(const std::string& call) {
    std::lock_guard lock(mutex_);
    calls_.push_back(call);
    auto& queue = scripts_[call];
    if (queue.empty()) return stem::aErrNone;
    const stem::aErr err = queue.front();
    queue.pop_front();
    return err;
}

std::uint8_t FakeBackend::aDiscovery_EnumerateModules(stem::LinkType,
                                                      const stem::ModuleFoundProc& callback,
                                                      std::uint32_t networkInterface) {
    lastNetworkInterface = networkInterface;
    std::uint8_t found = 0;
    for (const stem::LinkSpec& spec : modules) {
        bool success = false;
        ++found;
        if (!callback(spec, success)) break;
    }
    return found;
}

std::unique_ptr<stem::Module> FakeBackend::createUSBHub3c(std::uint8_t, bool, std::uint8_t) {
    ++modulesCreated;
    return std::make_unique<FakeModule>(*this);
}

}  // namespace testing_support
