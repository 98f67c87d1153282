#pragma once

#include "app/HubStation.h"

#include <memory>

namespace app {

// The station of a ZMRAcronameManager.
class ManagerHubStation final : public HubStation {
  public:
    explicit ManagerHubStation(std::shared_ptr<ZMRAcronameManager> manager);

    void refreshAcronameDevices(std::function<void(AC2Devices)> completion) override;
    void dfuModeForAcronamePorts(AcronamePorts ports, Update update, Completion completion,
                                 PortObserver observer) override;
    void restartForAcronamePorts(AcronamePorts ports, Update update, Completion completion,
                                 PortObserver observer) override;
    void recoveryForAcronamePorts(AcronamePorts ports, Update update, Completion completion,
                                  PortObserver observer) override;
    bool worksHubsAtOnce() const override;
    void rebootHub(AcronameHub& hub) override;
    void toggleLED(AcronameHub& hub) override;

  private:
    std::shared_ptr<ZMRAcronameManager> manager_;
};

}  // namespace app
