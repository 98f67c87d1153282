#pragma once

#include "station/ZMRAcronameManager.h"

#include <functional>

class AcronameHub;

namespace app {

// What the hub window asks of the hubs. The application's station is the shared manager; tests
// script their own.
class HubStation {
  public:
    using Update = ZMRAcronameManager::Update;
    using Completion = ZMRAcronameManager::Completion;

    virtual ~HubStation() = default;

    // Blocks while the hubs are reconnected and probed; the completion may come on any thread.
    virtual void refreshAcronameDevices(std::function<void(AC2Devices)> completion) = 0;
    // The observer hears, on the sequence's thread, which port and step are being worked.
    virtual void dfuModeForAcronamePorts(AcronamePorts ports, Update update, Completion completion,
                                         PortObserver observer) = 0;
    virtual void restartForAcronamePorts(AcronamePorts ports, Update update, Completion completion,
                                         PortObserver observer) = 0;
    virtual void recoveryForAcronamePorts(AcronamePorts ports, Update update,
                                          Completion completion, PortObserver observer) = 0;
    // Whether sequences work every hub at once, as the acronameParallelHubs setting says now.
    virtual bool worksHubsAtOnce() const = 0;
    // Blocking hub commands.
    virtual void rebootHub(AcronameHub& hub) = 0;
    virtual void toggleLED(AcronameHub& hub) = 0;
};

}  // namespace app
