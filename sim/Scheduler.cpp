#include "Scheduler.h"

#include <QTimer>

#include <algorithm>
#include <cmath>

namespace sim {

Scheduler::Token ManualScheduler::after(double seconds, std::function<void()> action) {
    const Token token = nextToken_++;
    queue_.emplace(Key{now_ + std::max(0.0, seconds), token}, std::move(action));
    return token;
}

void ManualScheduler::cancel(Token token) {
    std::erase_if(queue_, [token](const auto& entry) { return entry.first.token == token; });
}

void ManualScheduler::advance(double seconds) {
    const double until = now_ + seconds;
    while (!queue_.empty() && queue_.begin()->first.due <= until) {
        auto entry = queue_.extract(queue_.begin());
        now_ = entry.key().due;
        entry.mapped()();
    }
    now_ = until;
}

TimerScheduler::TimerScheduler(double speed, QObject* parent)
    : QObject(parent), speed_(speed > 0 ? speed : 1.0) {
    started_.start();
}

Scheduler::Token TimerScheduler::after(double seconds, std::function<void()> action) {
    const Token token = nextToken_++;
    auto* timer = new QTimer(this);
    timer->setSingleShot(true);
    timer->setTimerType(Qt::PreciseTimer);
    connect(timer, &QTimer::timeout, this, [this, token, action = std::move(action)] {
        if (QTimer* done = timers_.take(token))
            done->deleteLater();
        action();
    });
    timers_.insert(token, timer);
    timer->start(static_cast<int>(std::lround(std::max(0.0, seconds) * 1000.0 / speed_)));
    return token;
}

void TimerScheduler::cancel(Token token) {
    if (QTimer* timer = timers_.take(token)) {
        timer->stop();
        timer->deleteLater();
    }
}

double TimerScheduler::now() const {
    return static_cast<double>(started_.elapsed()) / 1000.0 * speed_;
}

}  // namespace sim
