#pragma once

namespace cli {

// `local auto`: the unattended cycle on the host's DFU port until Ctrl-C. Prints every state
// change and every Mac restored; answers the exit status (1 when any restore failed).
struct LocalAutoOptions {
    bool restore = false;
    bool recoveryAfter = false;
};

int runLocalAuto(const LocalAutoOptions& options);

}  // namespace cli
