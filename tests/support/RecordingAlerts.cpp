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

void RecordingSounds::beep() {
    std::lock_guard lock(mutex_);
    played_ << QStringLiteral("beep");
}

void RecordingSounds::play(const QString& name) {
    std::lock_guard lock(mutex_);
    played_ << name;
}

QStringList RecordingSounds::played() const {
    std::lock_guard lock(mutex_);
    return played_;
}

}  // namespace testing_support
