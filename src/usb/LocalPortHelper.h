#pragma once

#include <cstdint>
#include <functional>

// What the host's own DFU port needs of the privileged helper: the version check that reinstalls
// an outdated helper, and the two messages to the Mac cabled to that port. A reply carries the
// helper's status (0 is success); it may never come, and may arrive on any thread.
class LocalPortHelper {
  public:
    using Reply = std::function<void(std::int64_t status)>;

    virtual ~LocalPortHelper() = default;
    virtual void installToolIfNecessary() = 0;
    virtual void enterDFUMode(Reply reply) = 0;
    virtual void reboot(Reply reply) = 0;
};
