#pragma once

#include <signal.h>
#include <unistd.h>

#include <cstdio>

// What the tools' stand-ins (tarvel-sim-cfgutil, tarvel-sim-idevicerestore) do with SIGTERM,
// SIGINT and SIGHUP: the handler only writes the signal's number into a pipe the event loop
// watches, which stops the simulator's restore; the stand-in then dies by the signal, as the
// real tool does.
namespace standin {

inline int signalPipe[2] = {-1, -1};

inline void onSignal(int number) {
    const unsigned char byte = static_cast<unsigned char>(number);
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[1], &byte, 1);
}

[[noreturn]] inline void dieBy(int number) {
    std::fflush(stdout);
    signal(number, SIG_DFL);
    raise(number);
    _exit(128 + number);
}

}  // namespace standin
