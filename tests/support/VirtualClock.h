#pragma once

#include "core/Clock.h"

#include <mutex>
#include <vector>

namespace testing_support {

// A clock that never waits: every sleep is recorded and moves the clock forward.
class VirtualClock final : public core::Clock {
public:
    struct Sleep {
        enum class Unit { Seconds, Microseconds } unit;
        std::uint64_t amount;
        bool operator==(const Sleep&) const = default;
    };

    explicit VirtualClock(QDateTime start = QDateTime(QDate(2026, 3, 14), QTime(9, 26, 53)));

    QDateTime now() const override;
    void sleepSeconds(unsigned seconds) override;
    void sleepMicroseconds(std::uint64_t microseconds) override;

    void advanceMilliseconds(qint64 milliseconds);
    std::vector<Sleep> sleeps() const;

private:
    mutable std::mutex mutex_;
    QDateTime now_;
    std::vector<Sleep> sleeps_;
};

}  // namespace testing_support
