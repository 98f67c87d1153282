#include "core/Clock.h"

#include <chrono>
#include <thread>

namespace core {

Clock& Clock::system() {
    static SystemClock clock;
    return clock;
}

QDateTime SystemClock::now() const { return QDateTime::currentDateTime(); }

void SystemClock::sleepSeconds(unsigned seconds) {
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
}

void SystemClock::sleepMicroseconds(std::uint64_t microseconds) {
    std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
}

}  // namespace core
