#pragma once

#include <QDateTime>

#include <cstdint>

namespace core {

// Time as the sequences and the logger see it. Production sleeps for real; tests substitute a
// clock that records each sleep and returns at once.
class Clock {
public:
    virtual ~Clock() = default;
    virtual QDateTime now() const = 0;
    virtual void sleepSeconds(unsigned seconds) = 0;
    virtual void sleepMicroseconds(std::uint64_t microseconds) = 0;

    static Clock& system();
};

class SystemClock final : public Clock {
public:
    QDateTime now() const override;
    void sleepSeconds(unsigned seconds) override;
    void sleepMicroseconds(std::uint64_t microseconds) override;
};

}  // namespace core
