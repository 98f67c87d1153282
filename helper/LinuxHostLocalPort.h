#pragma once

#include "LocalPortBackend.h"

// The host's own DFU port on Linux. Linux offers no generic way to send a USB Power Delivery
// vendor-defined message from the host's own USB-C port, so both calls fail with status 95
// (EOPNOTSUPP) and a log line that says so.
class LinuxHostLocalPort final : public LocalPortBackend {
  public:
    std::int64_t enterDFUMode() override;
    std::int64_t reboot() override;
};
