#pragma once

#include "core/Alerts.h"

#include <mutex>
#include <vector>

namespace testing_support {

// Keeps every alert and answers with a chosen button.
class RecordingAlerts final : public core::Alerts {
public:
    int show(const core::Alert& alert) override;
    std::vector<core::Alert> shown() const;
    int answer = 0;

private:
    mutable std::mutex mutex_;
    std::vector<core::Alert> shown_;
};

}  // namespace testing_support
