#pragma once

#include <QTimer>

#include <cmath>
#include <functional>

namespace usb {

// A QTimer of the main loop behind one of the timer interfaces (one-shot or repeating): valid
// while it is scheduled, which for a one-shot timer ends when it fires.
template <typename Interface>
class MainLoopTimer final : public Interface {
  public:
    MainLoopTimer(double seconds, std::function<void()> action, bool singleShot) {
        timer_.setSingleShot(singleShot);
        timer_.setTimerType(Qt::PreciseTimer);
        QObject::connect(&timer_, &QTimer::timeout, std::move(action));
        timer_.start(static_cast<int>(std::lround(seconds * 1000.0)));
    }
    bool isValid() const override { return timer_.isActive(); }
    void invalidate() override { timer_.stop(); }

  private:
    QTimer timer_;
};

}  // namespace usb
