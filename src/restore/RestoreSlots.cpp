#include "restore/RestoreSlots.h"

namespace restore {

bool RestoreSlots::take(int cap, const std::function<bool()>& cancelled,
                        const std::function<void()>& waiting) {
    std::unique_lock lock(mutex_);
    const auto free = [&] { return cap <= 0 || running_ < cap || cancelled(); };
    if (!free()) {
        waiting();
        freed_.wait(lock, free);
    }
    if (cancelled())
        return false;
    ++running_;
    return true;
}

void RestoreSlots::release() {
    {
        std::lock_guard lock(mutex_);
        --running_;
    }
    freed_.notify_all();
}

void RestoreSlots::wake() {
    std::lock_guard lock(mutex_);
    freed_.notify_all();
}

}  // namespace restore
