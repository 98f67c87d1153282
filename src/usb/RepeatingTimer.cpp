#include "usb/RepeatingTimer.h"

#include <QTimer>

#include <cmath>

namespace usb {
namespace {

class MainLoopRepeatingTimer final : public RepeatingTimer {
  public:
    MainLoopRepeatingTimer(double seconds, std::function<void()> action) {
        QObject::connect(&timer_, &QTimer::timeout, std::move(action));
        timer_.start(static_cast<int>(std::lround(seconds * 1000.0)));
    }
    bool isValid() const override { return timer_.isActive(); }
    void invalidate() override { timer_.stop(); }

  private:
    QTimer timer_;
};

}  // namespace

RepeatingTimerFactory mainLoopRepeatingTimers() {
    return [](double seconds, std::function<void()> action) -> std::unique_ptr<RepeatingTimer> {
        return std::make_unique<MainLoopRepeatingTimer>(seconds, std::move(action));
    };
}

}  // namespace usb
