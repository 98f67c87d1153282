#pragma once

#include "station/PortVerdict.h"
#include "station/ZMRAcronameManager.h"

#include <QStringList>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace core {
class Clock;
}

namespace station {

// One run of a port sequence over chosen ports, and its verdict: the command line's sequence
// commands and every port of the unattended bench work their hubs this way, so they account for
// a port alike. A port that reads disabled hides whether a Mac is on it, so it is enabled before
// the run and named as such in the verdict; after the run every port is read again, and one left
// disabled is enabled once more, or named left disabled when that fails.
class PortRun {
  public:
    enum class Sequence { Dfu, Restart, Recovery };
    // What the caller hears besides the verdict, on the sequence's worker; each may be empty.
    struct Listeners {
        ZMRAcronameManager::Update update;
        PortObserver observer;
        ZMRAcronameManager::Completion completion;
    };

    // Enables each port that reads disabled and answers their names; then gives the Macs that
    // got power again a moment on `clock` to show their cables.
    static QStringList enableDisabledPorts(const AcronamePorts& ports, core::Clock& clock);

    // `wereDisabled`: what enableDisabledPorts answered for these ports.
    PortRun(Sequence sequence, AcronamePorts ports, QStringList wereDisabled = {});
    // A power-mode pass: 0 power delivery, 1 standard and 2 charging downstream; any other
    // number power-cycles the ports without changing their mode.
    PortRun(std::int64_t powerMode, AcronamePorts ports, QStringList wereDisabled = {});

    // Starts the sequence on `manager`; it runs wherever the manager runs background work.
    void start(ZMRAcronameManager& manager, Listeners listeners = {});
    // Once the sequence has ended: reads every port again on `hubs` (a refresh after a failure
    // may have replaced the hubs the run began with) and answers the verdict.
    PortVerdict finish(const std::vector<std::shared_ptr<AcronameHub>>& hubs,
                       bool interrupted = false);

  private:
    struct Recorded;

    std::optional<Sequence> sequence_;
    std::int64_t powerMode_ = 0;
    AcronamePorts ports_;
    QStringList wereDisabled_;
    // Shared with the sequence's worker, which may report after a caller stopped waiting.
    std::shared_ptr<Recorded> recorded_;
};

}  // namespace station
