#include "core/Clock.h"

#include <chrono>
#include <thread>

namespace core {

SystemClock& Clock::system() {
    static SystemClock clock;
    return clock;
}

SystemClock& Clock::wall() {
    static SystemClock clock;
    return clock;
}

QDateTime SystemClock::now() const {
    return QDateTime::currentDateTime();
}

void SystemClock::sleepSeconds(unsigned seconds) {
    sleepMicroseconds(static_cast<std::uint64_t>(seconds) * 1000000u);
}

void SystemClock::sleepMicroseconds(std::uint64_t microseconds) {
    const double scaled = static_cast<double>(microseconds) / speed_.load();
    std::this_thread::sleep_for(std::chrono::microseconds(static_cast<std::int64_t>(scaled)));
}

void SystemClock::setSpeed(double speed) {
    if (speed > 0)
        speed_.store(speed);
}

}  // namespace core
