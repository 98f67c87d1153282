#include "FakeStem.h"

#include <algorithm>

namespace testing_support {

namespace {

// What a module's entity objects share: the backend that records calls and the linked hub.
struct Link {
    FakeBackend& backend;
    FakeHubState* hub = nullptr;

    // Records the call; a scripted failure wins, and nothing answers without a link.
    template <typename Apply>
    stem::aErr run(const std::string& name, Apply apply) {
        const stem::aErr err = backend.take(name);
        if (err != stem::aErrNone) return err;
        if (hub == nullptr) return stem::aErrConnection;
        apply(*hub);
        return stem::aErrNone;
    }
};

// A setter or getter of one field of the entity's state (a port's, or the hub's for system).
#define FAKE_SET(Name, Type, field) \
    stem::aErr Name(Type v) override { return on(#Name, [&](auto& s) { s.field = v; }); }
#define FAKE_GET(Name, Type, field) \
    stem::aErr Name(Type* v) override { return on(#Name, [&](auto& s) { *v = s.field; }); }

// Calls on entity `index` are named "<prefix>[index].<call>" and act on that port's state.
class PortEntity {
protected:
    PortEntity(Link& link, int index, const char* prefix)
        : link_(link), index_(index), prefix_(prefix) {}
    template <typename Apply>
    stem::aErr on(const char* name, Apply apply) {
        return link_.run(prefix_ + ("[" + std::to_string(index_) + "].") + name,
                         [&](FakeHubState& hub) { apply(hub.ports[index_]); });
    }

private:
    Link& link_;
    int index_;
    std::string prefix_;
};

class FakePort final : public stem::PortClass, PortEntity {
public:
    FakePort(Link& link, int index) : PortEntity(link, index, "port") {}
    FAKE_SET(setEnabled, std::uint8_t, enabled)
    FAKE_GET(getEnabled, std::uint8_t, enabled)
    FAKE_SET(setPowerMode, std::uint8_t, powerMode)
    FAKE_GET(getPowerMode, std::uint8_t, powerMode)
    FAKE_SET(setPowerLimit, std::uint32_t, powerLimit)
    FAKE_GET(getVbusVoltage, std::int32_t, vbusVoltage)
    FAKE_GET(getVbusCurrent, std::int32_t, vbusCurrent)
    FAKE_GET(getVconnVoltage, std::int32_t, vconnVoltage)
    FAKE_GET(getVconnCurrent, std::int32_t, vconnCurrent)
};

class FakePowerDelivery final : public stem::PowerDeliveryClass, PortEntity {
public:
    FakePowerDelivery(Link& link, int index) : PortEntity(link, index, "pd") {}
    FAKE_SET(setPowerRole, std::uint8_t, powerRole)
    FAKE_GET(getPowerRole, std::uint8_t, powerRole)
    FAKE_SET(setOverride, std::uint32_t, override)
    FAKE_GET(getCableOrientation, std::uint8_t, orientation)
    stem::aErr setUEIBytes(std::uint8_t option, const std::uint8_t* buffer,
                           std::size_t length) override {
        return on("setUEIBytes", [&](auto& p) {
            p.lastUEIOption = option;
            p.lastUEIBytes.assign(buffer, buffer + length);
        });
    }
};

class FakeSystem final : public stem::SystemClass {
public:
    explicit FakeSystem(Link& link) : link_(link) {}
    stem::aErr save() override { return on("save", [](auto& h) { ++h.saves; }); }
    stem::aErr reset() override { return on("reset", [](auto&) {}); }
    FAKE_SET(setLED, std::uint8_t, led)
    FAKE_GET(getLED, std::uint8_t, led)
    FAKE_GET(getVersion, std::uint32_t, version)
    FAKE_SET(setPowerLimitMax, std::uint32_t, powerLimitMax)
    FAKE_GET(getPowerLimitMax, std::uint32_t, powerLimitMax)
    FAKE_GET(getPowerLimit, std::uint32_t, powerLimit)
    FAKE_GET(getInputPowerSource, std::uint8_t, inputPowerSource)

private:
    template <typename Apply>
    stem::aErr on(const char* name, Apply apply) {
        // Appended rather than `std::string("system.") + name`, which GCC 12 at -O2 warns
        // about wrongly (-Warray-bounds in its own string code).
        std::string call = "system.";
        call += name;
        return link_.run(call, apply);
    }
    Link& link_;
};

#undef FAKE_SET
#undef FAKE_GET

class FakeModule final : public stem::Module {
public:
    explicit FakeModule(FakeBackend& backend) : link_{backend} {
        for (int i = 0; i < kEntityCount; ++i) {
            ports_.push_back(std::make_unique<FakePort>(link_, i));
            pds_.push_back(std::make_unique<FakePowerDelivery>(link_, i));
        }
    }

    stem::aErr discoverAndConnect(stem::LinkType, std::uint32_t serialNumber) override {
        const stem::aErr err = link_.backend.take("discoverAndConnect");
        if (err != stem::aErrNone) return err;
        auto& hubs = link_.backend.hubs;
        // Serial number 0 asks for the first hub found.
        if (serialNumber == 0 && !hubs.empty()) serialNumber = hubs.begin()->first;
        if (!hubs.contains(serialNumber)) return stem::aErrNotFound;
        link_.hub = &hubs[serialNumber];
        return stem::aErrNone;
    }
    bool isConnected() override { return link_.hub != nullptr; }
    stem::aErr disconnect() override {
        const stem::aErr err = link_.backend.take("disconnect");
        if (link_.hub == nullptr) return stem::aErrConnection;
        link_.hub = nullptr;
        return err;
    }
    stem::PortClass& port(std::uint8_t index) override { return *ports_.at(index); }
    stem::PowerDeliveryClass& pd(std::uint8_t index) override { return *pds_.at(index); }
    stem::SystemClass& system() override { return system_; }

private:
    Link link_;
    std::vector<std::unique_ptr<FakePort>> ports_;
    std::vector<std::unique_ptr<FakePowerDelivery>> pds_;
    FakeSystem system_{link_};
};

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
    if (observer) observer(call);
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
