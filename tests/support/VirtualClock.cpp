#include "support/VirtualClock.h"

namespace testing_support {

VirtualClock::VirtualClock(QDateTime start) : now_(std::move(start)) {}

QDateTime VirtualClock::now() const {
    std::lock_guard lock(mutex_);
    return now_;
}

void VirtualClock::sleepSeconds(unsigned seconds) {
    std::lock_guard lock(mutex_);
    sleeps_.push_back({Sleep::Unit::Seconds, seconds});
    now_ = now_.addSecs(seconds);
}

void VirtualClock::sleepMicroseconds(std::uint64_t microseconds) {
    std::lock_guard lock(mutex_);
    sleeps_.push_back({Sleep::Unit::Microseconds, microseconds});
    now_ = now_.addMSecs(static_cast<qint64>(microseconds / 1000));
}

void VirtualClock::advanceMilliseconds(qint64 milliseconds) {
    std::lock_guard lock(mutex_);
    now_ = now_.addMSecs(milliseconds);
}

std::vector<VirtualClock::Sleep> VirtualClock::sleeps() const {
    std::lock_guard lock(mutex_);
    return sleeps_;
}

}  // namespace testing_support
