#include "MainLoopStalls.h"

#include <algorithm>
#include <cstdio>
#include <functional>

namespace bench {

MainLoopStalls::MainLoopStalls() {
    ticks_.setTimerType(Qt::PreciseTimer);
    QObject::connect(&ticks_, &QTimer::timeout, [this] {
        const qint64 now = clock_.nsecsElapsed();
        if (lastTick_)
            longest_.append({now - lastTick_, now});
        std::sort(longest_.begin(), longest_.end(), std::greater<>());
        if (longest_.size() > 5)
            longest_.removeLast();
        lastTick_ = now;
    });
}

void MainLoopStalls::start() {
    clock_.start();
    ticks_.start(1);
}

void MainLoopStalls::print() const {
    std::printf("longest main-loop stalls:");
    for (const auto& [length, end] : longest_)
        std::printf(" %.1f ms (at %.2f s)", double(length) / 1e6, double(end) / 1e9);
    std::printf("\n");
}

}  // namespace bench
