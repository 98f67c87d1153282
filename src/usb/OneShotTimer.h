#pragma once

#include <functional>
#include <memory>

namespace usb {

// A timer that fires once on the main loop. It is valid from scheduling until it fires or is
// invalidated.
class OneShotTimer {
  public:
    virtual ~OneShotTimer() = default;
    virtual bool isValid() const = 0;
    virtual void invalidate() = 0;
};

using TimerFactory =
    std::function<std::unique_ptr<OneShotTimer>(double seconds, std::function<void()> action)>;

// Timers of the main thread's event loop.
TimerFactory mainLoopTimers();

}  // namespace usb
