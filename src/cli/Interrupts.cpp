#include "cli/Interrupts.h"

#include <QSocketNotifier>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

namespace cli {
namespace {

int interruptPipe[2] = {-1, -1};

void onInterrupt(int) {
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(interruptPipe[1], &byte, 1);
}

}  // namespace

Interrupts::Interrupts(std::function<void()> onInterrupt) : onInterrupt_(std::move(onInterrupt)) {
    if (interruptPipe[0] < 0 && ::pipe2(interruptPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    notifier_ = std::make_unique<QSocketNotifier>(interruptPipe[0], QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, [this] {
        char byte = 0;
        while (::read(interruptPipe[0], &byte, 1) == 1) {
        }
        onInterrupt_();
    });
    ::signal(SIGINT, cli::onInterrupt);
}

Interrupts::~Interrupts() { ::signal(SIGINT, SIG_DFL); }

}  // namespace cli
