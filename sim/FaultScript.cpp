#include "FaultScript.h"

namespace sim {

FaultScript::FaultScript(std::vector<FaultConfig> faults) {
    for (FaultConfig& fault : faults) entries_.push_back({std::move(fault), 0});
}

std::optional<std::uint32_t> FaultScript::next(const QString& call, int index) {
    for (Entry& entry : entries_) {
        if (entry.fault.call != call)
            continue;
        if (entry.fault.index >= 0 && entry.fault.index != index)
            continue;
        if (entry.position >= entry.fault.results.size())
            continue;
        const std::uint32_t code = entry.fault.results[entry.position++];
        if (entry.fault.repeat && entry.position == entry.fault.results.size())
            entry.position = 0;
        return code;
    }
    return std::nullopt;
}

}  // namespace sim
