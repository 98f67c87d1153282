#include "usb/OneShotTimer.h"

#include "usb/MainLoopTimer.h"

namespace usb {

TimerFactory mainLoopTimers() {
    return [](double seconds, std::function<void()> action) -> std::unique_ptr<OneShotTimer> {
        return std::make_unique<MainLoopTimer<OneShotTimer>>(seconds, std::move(action), true);
    };
}

}  // namespace usb
