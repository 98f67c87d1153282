#include "support/RecordingAlerts.h"

namespace testing_support {

int RecordingAlerts::show(const core::Alert& alert) {
    std::lock_guard lock(mutex_);
    shown_.push_back(alert);
    return answer;
}

std::vector<core::Alert> RecordingAlerts::shown() const {
    std::lock_guard lock(mutex_);
    return shown_;
}

}  // namespace testing_support
