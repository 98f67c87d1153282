#include "usb/OneShotTimer.h"

#include <QTimer>

#include <cmath>

namespace usb {
namespace {

class MainLoopTimer final : public OneShotTimer {
  public:
    MainLoopTimer(double seconds, std::function<void()> action) {
        timer_.setSingleShot(true);
        timer_.setTimerType(Qt::PreciseTimer);
        QObject::connect(&timer_, &QTimer::timeout, std::move(action));
        timer_.start(static_cast<int>(std::lround(seconds * 1000.0)));
    }
    // A fired single-shot timer is no longer active, which is exactly "no longer valid".
    bool isValid() const override { return timer_.isActive(); }
    void invalidate() override { timer_.stop(); }

  private:
    QTimer timer_;
};

}  // namespace

TimerFactory mainLoopTimers() {
    return [](double seconds, std::function<void()> action) -> std::unique_ptr<OneShotTimer> {
        return std::make_unique<MainLoopTimer>(seconds, std::move(action));
    };
}

}  // namespace usb
