#pragma once

#include "station/ZMRAcronameManager.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

namespace core {
class Clock;
class Settings;
}  // namespace core

// One run of a port sequence, from the power-mode pass every sequence begins with to its last
// step, on one background worker that sleeps there between steps, so a hub sees one command at a
// time. With parallel hubs, each pass over the ports splits them by hub into lanes that run at
// once, each lane doing for its ports what the pass does for all; the pauses over all ports come
// once, after every lane has finished. The message sequences build on it.
class SequenceRun {
  public:
    SequenceRun(ZMRAcronameManagerEnvironment environment, const AcronamePorts& ports,
                PortObserver observer, bool parallel);

    // Lanes report from several threads; whoever listens hears one report at a time.
    template <typename Callback>
    Callback oneAtATime(Callback callback) const {
        if (!callback || !parallel_)
            return callback;
        return [lock = reporting_, callback = std::move(callback)](const auto& value) {
            std::lock_guard hold(*lock);
            callback(value);
        };
    }

    // Power-cycles every connected port (disable, mode, 1 s, enable, pause) and answers whether
    // all of them came back. Stops at the first port that cannot be disabled or re-enabled. A
    // pass that is the whole of the work tells each port's success; a pass before other work
    // tells only its failures and the ports it leaves alone.
    bool powerModePass(std::int64_t mode, const AcronamePorts& ports, bool lastWork) const;

  protected:
    // Runs `work` over all ports at once, or over each hub's ports at once in parallel lanes.
    void inLanes(const AcronamePorts& ports,
                 const std::function<void(const AcronamePorts&)>& work) const;

    // Whether a lane may begin its next port: no lane has failed yet. The check and the port's
    // first report are made under the reporting lock, where failures are raised, so once a
    // failure has been told no lane begins another port.
    template <typename Begin>
    bool beginPort(const std::atomic<bool>& failed, Begin&& begin) const {
        std::lock_guard hold(*reporting_);
        if (failed || stopping())
            return false;
        begin();
        return true;
    }
    // Raises the sequence's failure and tells it; answers whether this was the first failure.
    bool raiseFailure(std::atomic<bool>& failed, const AcronamePort& port,
                      PortProgress::Step step) const;

    void tellStep(const AcronamePort& port, PortProgress::Step step, unsigned seconds = 0) const;
    void tellDone(const AcronamePort& port, PortProgress::Step step) const;
    void tellFailed(const AcronamePort& port, PortProgress::Step step) const;
    void reportFailure(const AcronamePort& port, const char* command) const;

    core::Settings& settings() const { return *environment_.settings; }
    core::Clock& clock() const { return *environment_.clock; }
    // The setting in whole seconds, truncated toward zero.
    unsigned secondsOf(const char* key) const;
    // A pause over all ports, skipped once the run is asked to stop.
    void passPause(const char* key) const;
    void pauseMicroseconds(double seconds) const;
    bool stopping() const;

    ZMRAcronameManagerEnvironment environment_;

  private:
    enum class PortStart { Skip, Cycle };

    void tell(PortProgress progress, const AcronamePort* port = nullptr) const;
    PortStart startPowerCycle(const AcronamePort& port, bool lastWork) const;
    void powerModeLane(std::int64_t mode, const AcronamePorts& ports, bool lastWork,
                       std::atomic<bool>& failed, std::atomic<std::int64_t>& cycled) const;

    // Ports point at their hubs without owning them, and a refresh in the middle of a sequence
    // replaces the manager's hubs: the run keeps the hubs of its ports alive until it ends.
    std::vector<std::shared_ptr<AcronameHub>> hubs_;
    PortObserver observer_;
    // The sequence's list, for each port's place in it.
    AcronamePorts worked_;
    bool parallel_;
    // One lock for everything the lanes report, so texts, events and completions reach the
    // listeners one at a time and in the order they happened.
    std::shared_ptr<std::recursive_mutex> reporting_ = std::make_shared<std::recursive_mutex>();
};
