#pragma once

#include <QDateTime>

#include <atomic>
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

    // The station's clock: its pauses follow the simulator's speed once one is selected.
    static class SystemClock& system();
    // Host time, never scaled: for waits on this machine's own processes.
    static class SystemClock& wall();
};

// Sleeps for real, divided by the speed of the station it works with: a simulator running ten
// times faster than life makes every pause ten times shorter, so that a sequence meets the
// simulated Macs at the same moments of their start-up as it would meet real ones.
class SystemClock final : public Clock {
  public:
    QDateTime now() const override;
    void sleepSeconds(unsigned seconds) override;
    void sleepMicroseconds(std::uint64_t microseconds) override;

    // Values of 0 or below are ignored.
    void setSpeed(double speed);
    double speed() const { return speed_.load(); }

  private:
    std::atomic<double> speed_{1.0};
};

}  // namespace core
