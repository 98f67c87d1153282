#include "usb/RepeatingTimer.h"

#include "usb/MainLoopTimer.h"

namespace usb {

RepeatingTimerFactory mainLoopRepeatingTimers() {
    return [](double seconds, std::function<void()> action) -> std::unique_ptr<RepeatingTimer> {
        return std::make_unique<MainLoopTimer<RepeatingTimer>>(seconds, std::move(action), false);
    };
}

}  // namespace usb
