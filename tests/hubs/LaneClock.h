#pragma once

#include "core/Clock.h"
#include "core/Dispatch.h"

#include <QDateTime>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <set>
#include <thread>
#include <tuple>
#include <vector>

namespace testing_support {

// Virtual time for code that runs lanes on threads. Exactly one thread runs at a time; a thread
// that sleeps hands over to whichever waiting thread is due first (ties go to the one that began
// waiting first), and time jumps to that moment. Lanes therefore interleave as they would on
// hardware, the same way on every run, and the clock tells how long a run would have taken.
class LaneClock final : public core::Clock {
  public:
    QDateTime now() const override {
        std::lock_guard lock(mutex_);
        return QDateTime(QDate(2026, 3, 14), QTime(9, 0)).addMSecs(qint64(now_ / 1000));
    }
    void sleepSeconds(unsigned seconds) override { sleepMicroseconds(seconds * 1000000ull); }
    void sleepMicroseconds(std::uint64_t microseconds) override {
        if (microseconds == 0) return;
        std::unique_lock lock(mutex_);
        const int me = running_;
        due_.insert({now_ + microseconds, order_++, me});
        handOver();
        awaitTurn(lock, me);
    }

    double elapsedSeconds() const {
        std::lock_guard lock(mutex_);
        return double(now_) / 1e6;
    }

    // Stands in for dispatch::concurrently: the lanes start at the caller's moment, and the
    // caller goes on when the last lane ends.
    void runLanes(std::vector<dispatch::Task> lanes) {
        std::unique_lock lock(mutex_);
        const int caller = running_;
        std::size_t remaining = lanes.size();
        std::vector<std::thread> threads;
        for (auto& lane : lanes) {
            const int id = nextRunner_++;
            due_.insert({now_, order_++, id});
            threads.emplace_back([this, id, caller, &remaining, lane = std::move(lane)] {
                {
                    std::unique_lock turn(mutex_);
                    awaitTurn(turn, id);
                }
                lane();
                std::lock_guard done(mutex_);
                if (--remaining == 0) due_.insert({now_, order_++, caller});
                handOver();
            });
        }
        handOver();
        awaitTurn(lock, caller);
        lock.unlock();
        for (auto& thread : threads) thread.join();
    }

  private:
    void handOver() {
        const auto next = due_.begin();
        now_ = std::get<0>(*next);
        running_ = std::get<2>(*next);
        due_.erase(next);
        turn_.notify_all();
    }
    void awaitTurn(std::unique_lock<std::mutex>& lock, int runner) {
        turn_.wait(lock, [&] { return running_ == runner; });
    }

    mutable std::mutex mutex_;
    std::condition_variable turn_;
    std::uint64_t now_ = 0;
    std::uint64_t order_ = 0;
    int running_ = 0;
    int nextRunner_ = 1;
    // (moment, order of arrival, runner)
    std::set<std::tuple<std::uint64_t, std::uint64_t, int>> due_;
};

}  // namespace testing_support
