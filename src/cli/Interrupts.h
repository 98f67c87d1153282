#pragma once

#include <QObject>

#include <functional>
#include <memory>

class QSocketNotifier;

namespace cli {

// Ctrl-C as an event of the main loop: the signal handler only writes to a pipe, and the handler
// given here runs on the main thread. The default action comes back when this object goes.
class Interrupts {
  public:
    explicit Interrupts(std::function<void()> onInterrupt);
    ~Interrupts();
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;

    bool isWatching() const { return notifier_ != nullptr; }

  private:
    std::function<void()> onInterrupt_;
    std::unique_ptr<QSocketNotifier> notifier_;
};

}  // namespace cli
