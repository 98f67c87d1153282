#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>

namespace restore {

// The cap on restores running at once: the queue's thread waits for a slot before a start, a
// restore's end frees its slot, and a cancel wakes the waiting queue so it can give up. Many
// restores at once over one USB bus fail in the engine itself; a bench caps them.
class RestoreSlots {
  public:
    // Blocks until fewer than `cap` restores run (0: no cap) or `cancelled` answers true, telling
    // `waiting` first when it has to wait; answers whether a slot was taken.
    bool take(int cap, const std::function<bool()>& cancelled,
              const std::function<void()>& waiting);
    // A restore has ended; a Mac restored again after a retry keeps its slot until then.
    void release();
    // Re-reads `cancelled` in every waiter.
    void wake();

  private:
    std::mutex mutex_;
    std::condition_variable freed_;
    int running_ = 0;
};

}  // namespace restore
