#pragma once

#include <QString>

#include <cstdint>
#include <functional>

class AcronamePort;

// What a port sequence is doing, told as it happens, for displays and verdicts. It never changes
// what the sequence does or says; the sequence's update texts and completions stay the record of
// its outcome as the desktop application sees it.
struct PortProgress {
    enum class Kind {
        // `step` begins on `port` (`seconds` set for the settling pause).
        PortStep,
        // A pause over all ports of `seconds` seconds begins; `port` is null.
        PassPause,
        // `port`'s part in the sequence ended: `succeeded`, or failed at `step` with the hub's
        // `result` (negative when the hub gave none, such as a hub that is gone).
        PortResult,
        // `port` is left alone: nothing is connected to it.
        PortSkipped,
    };
    enum class Step { Disable, PowerMode, Enable, Settling, DfuMessage, Reboot };

    Kind kind = Kind::PortStep;
    Step step = Step::Disable;
    const AcronamePort* port = nullptr;
    // The port's place in the sequence's list, from 1, and the list's length.
    int position = 0;
    int count = 0;
    unsigned seconds = 0;
    bool succeeded = false;
    std::int64_t result = -1;
};

using PortObserver = std::function<void(const PortProgress&)>;

// "disable", "power mode", "enable", "settling", "DFU message", "reboot".
QString portStepName(PortProgress::Step step);

// A hub's answer to a port command in words: "result 6"; "hub 1C3B4A01 went away" for the
// connection error a vanished hub answers; "no answer from the hub" without a result.
QString portResultText(std::int64_t result, const QString& hubName);
