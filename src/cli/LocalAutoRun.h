#pragma once

#include <QString>

#include <optional>

namespace cli {

// `local auto`: the unattended cycle on the host's DFU port until Ctrl-C. Prints every state
// change and every Mac restored; answers the exit status (1 when any restore failed or the
// simulator went away).
struct LocalAutoOptions {
    bool restore = false;
    bool recoveryAfter = false;
    std::optional<QString> simulator;  // its socket closing ends the run with status 1
};

int runLocalAuto(const LocalAutoOptions& options);

}  // namespace cli
