#pragma once

#include "StationConfig.h"

#include <QString>

#include <optional>
#include <vector>

namespace sim {

// The station file's scripted result codes: each matching call takes the next one.
class FaultScript {
  public:
    explicit FaultScript(std::vector<FaultConfig> faults);

    // The code to answer instead of the normal one (0 means "do the call"), or nothing when no
    // script applies to this call any more.
    std::optional<std::uint32_t> next(const QString& call, int index);

  private:
    struct Entry {
        FaultConfig fault;
        std::size_t position = 0;
    };
    std::vector<Entry> entries_;
};

}  // namespace sim
