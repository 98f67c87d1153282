#pragma once

#include "hubs/stem/Backend.h"
#include "hubs/stem/Module.h"

#include <atomic>
#include <memory>

namespace bench {

// Passes every library call through to another backend and counts it, so a scenario can say
// what one call costs.
class CountingBackend final : public stem::Backend {
public:
    explicit CountingBackend(std::shared_ptr<stem::Backend> inner) : inner_(std::move(inner)) {}

    std::uint8_t aDiscovery_EnumerateModules(stem::LinkType type, const stem::ModuleFoundProc& callback,
                                             std::uint32_t networkInterface) override;
    std::unique_ptr<stem::Module> createUSBHub3c(std::uint8_t address, bool autoNetworking,
                                                 std::uint8_t model) override;
    void aVersion_ParseString(std::uint32_t build, char* buffer, std::size_t length) override;
    const char* aError_GetErrorDescription(stem::aErr error) override;

    long calls() const { return calls_; }
    void resetCalls() { calls_ = 0; }
    void count() { ++calls_; }

private:
    std::shared_ptr<stem::Backend> inner_;
    std::atomic<long> calls_{0};
};

}  // namespace bench
