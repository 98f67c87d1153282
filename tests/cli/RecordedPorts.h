#pragma once

#include "hubs/AcronameHub.h"
#include "station/PortProgress.h"
#include "support/StationBuilder.h"

#include <memory>
#include <vector>

namespace testing_support {

// Ports of one hub (1C3B4A01 unless told) with no hardware behind them, and the observer events
// a sequence would report for them.
class RecordedPorts {
  public:
    explicit RecordedPorts(int count, std::uint32_t hubSerial = 0x1C3B4A01)
        : hub_(StationBuilder(1, count, hubSerial).acronameHubs().front()), ports_(hub_->ports()) {}

    QStringList names() const {
        QStringList list;
        for (const auto& port : ports_) list << port->name();
        return list;
    }

    PortProgress step(int id, PortProgress::Step step, unsigned seconds = 0) const {
        return at(id, {.kind = PortProgress::Kind::PortStep, .step = step, .seconds = seconds});
    }
    PortProgress done(int id) const {
        return at(id, {.kind = PortProgress::Kind::PortResult, .succeeded = true});
    }
    PortProgress failed(int id, PortProgress::Step step, std::int64_t result) const {
        return at(id, {.kind = PortProgress::Kind::PortResult, .step = step, .result = result});
    }
    PortProgress skipped(int id) const { return at(id, {.kind = PortProgress::Kind::PortSkipped}); }
    PortProgress passPause(unsigned seconds) const {
        return {
            .kind = PortProgress::Kind::PassPause, .count = int(ports_.size()), .seconds = seconds};
    }

  private:
    PortProgress at(int id, PortProgress event) const {
        event.port = ports_.at(id - 1).get();
        event.position = id;
        event.count = int(ports_.size());
        return event;
    }

    std::shared_ptr<AcronameHub> hub_;
    std::vector<std::shared_ptr<AcronamePort>> ports_;
};

}  // namespace testing_support
