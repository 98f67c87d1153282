#pragma once

#include <functional>
#include <memory>

namespace usb {

// A timer that fires every period on the main loop until it is invalidated.
class RepeatingTimer {
  public:
    virtual ~RepeatingTimer() = default;
    virtual bool isValid() const = 0;
    virtual void invalidate() = 0;
};

using RepeatingTimerFactory = std::function<std::unique_ptr<RepeatingTimer>(
    double periodSeconds, std::function<void()> action)>;

// Timers of the main thread's event loop.
RepeatingTimerFactory mainLoopRepeatingTimers();

}  // namespace usb
