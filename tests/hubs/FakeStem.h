#pragma once

#include "hubs/stem/Backend.h"

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace testing_support {

// The state of one fake hub as the driver reads and writes it.
struct FakeHubState {
    struct Port {
        std::uint8_t enabled = 1;
        std::uint8_t powerMode = 1;
        std::uint32_t powerLimit = 0;
        std::int32_t vbusVoltage = 0, vbusCurrent = 0, vconnVoltage = 0, vconnCurrent = 0;
        std::uint8_t powerRole = 1;
        std::uint32_t override = 0;
        std::uint8_t orientation = 0;
        std::vector<std::uint8_t> lastUEIBytes;
        std::uint8_t lastUEIOption = 0;
    };
    std::uint32_t serialNumber = 0x1234ABCD;
    Port ports[8];
    std::uint8_t led = 0;
    std::uint8_t inputPowerSource = 7;
    std::uint32_t powerLimit = 100000;
    std::uint32_t powerLimitMax = 60000;
    std::uint32_t version = stem::packVersion(2, 10, 3);
    int saves = 0;
};

// A scripted stand-in for the vendor library. Every call is recorded by name ("port[3].setEnabled",
// "pd[2].setUEIBytes", "system.save", "discoverAndConnect"); a call answers the next result
// scripted for its name, and success once the script runs out.
class FakeBackend final : public stem::Backend {
public:
    std::vector<stem::LinkSpec> modules;  // what discovery reports
    std::map<std::uint32_t, FakeHubState> hubs;  // by serial number; connect finds these

    void script(const std::string& call, std::deque<stem::aErr> results);
    std::vector<std::string> calls() const;
    int count(const std::string& call) const;
    FakeHubState& hub(std::uint32_t serial) { return hubs[serial]; }
    // Records the call and answers its scripted result.
    stem::aErr take(const std::string& call);

    std::uint8_t aDiscovery_EnumerateModules(stem::LinkType type,
                                             const stem::ModuleFoundProc& callback,
                                             std::uint32_t networkInterface) override;
    std::unique_ptr<stem::Module> createUSBHub3c(std::uint8_t address, bool autoNetworking,
                                                 std::uint8_t model) override;

    std::uint32_t lastNetworkInterface = 0;
    // Sees every call as it is made, for tests that interleave hub calls with other events.
    std::function<void(const std::string&)> observer;
    std::atomic<int> modulesCreated = 0;  // hubs connect on lanes of their own

  private:
    mutable std::mutex mutex_;
    std::map<std::string, std::deque<stem::aErr>> scripts_;
    std::vector<std::string> calls_;
};

}  // namespace testing_support
