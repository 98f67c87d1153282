#pragma once

#include <cstdint>

// What actually reaches the Mac cabled to the host's DFU port. Each answers the status the
// helper replies with: 0 on success, otherwise a code that says what went wrong.
class LocalPortBackend {
  public:
    virtual ~LocalPortBackend() = default;
    virtual std::int64_t enterDFUMode() = 0;
    virtual std::int64_t reboot() = 0;
};
