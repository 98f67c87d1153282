#include "usb/AutoDFU.h"

const char* autoTarvStateName(AutoTarvState state) {
    switch (state) {
        case AutoTarvState::unknown: return "unknown";
        case AutoTarvState::waitingForDFU: return "waitingForDFU";
        case AutoTarvState::inDFU: return "inDFU";
        case AutoTarvState::stop: return "stop";
        case AutoTarvState::restoring: return "restoring";
        case AutoTarvState::restored: return "restored";
    }
    return "unknown";
}

AutoDFU& AutoDFU::shared() {
    static AutoDFU instance;
    return instance;
}
