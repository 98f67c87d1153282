#include "app/ManagerHubStation.h"

#include "hubs/AcronameHub.h"

namespace app {

ManagerHubStation::ManagerHubStation(std::shared_ptr<ZMRAcronameManager> manager)
    : manager_(std::move(manager)) {}

void ManagerHubStation::refreshAcronameDevices(std::function<void(AC2Devices)> completion) {
    manager_->refreshAcronameDevices(std::move(completion));
}

void ManagerHubStation::dfuModeForAcronamePorts(AcronamePorts ports, Update update,
                                         Completion completion, PortObserver observer) {
    manager_->dfuModeForAcronamePorts(std::move(ports), std::move(update), std::move(completion),
                 std::move(observer));
}

void ManagerHubStation::restartForAcronamePorts(AcronamePorts ports, Update update,
                                         Completion completion, PortObserver observer) {
    manager_->restartForAcronamePorts(std::move(ports), std::move(update), std::move(completion),
                 std::move(observer));
}

void ManagerHubStation::recoveryForAcronamePorts(AcronamePorts ports, Update update,
                                         Completion completion, PortObserver observer) {
    manager_->recoveryForAcronamePorts(std::move(ports), std::move(update), std::move(completion),
                 std::move(observer));
}

bool ManagerHubStation::worksHubsAtOnce() const {
    return manager_->parallelHubs();
}

void ManagerHubStation::rebootHub(AcronameHub& hub) {
    hub.rebootHub();
}

void ManagerHubStation::toggleLED(AcronameHub& hub) {
    hub.toggleLED();
}

}  // namespace app
