#include "engines/CfgutilEngine.h"

#include "configurator/ZMRConfigurator2Utility.h"

namespace engines {

CfgutilEngine::CfgutilEngine(ZMRConfigurator2Utility& utility) : utility_(utility) {}

CfgutilEngine::CfgutilEngine(std::unique_ptr<ZMRConfigurator2Utility> utility)
    : owned_(std::move(utility)), utility_(*owned_) {}

CfgutilEngine::~CfgutilEngine() = default;

QString CfgutilEngine::name() const {
    return QStringLiteral("cfgutil");
}

bool CfgutilEngine::isInstalled() const {
    return utility_.isAC2Installed();
}

core::Alert CfgutilEngine::notInstalledAlert() const {
    return {
        QStringLiteral("Apple Configurator Not Installed"),
        QStringLiteral("Apple Configurator is not installed to your Applications folder. Please "
                       "install Apple Configurator to restore devices and to show which "
                       "devices are in DFU mode. It is not required to put devices into DFU "
                       "mode."),
        {QStringLiteral("OK")}};
}

// A missing firmware file would stop every restore of the batch without a completion, leaving
// the batch open for ever; it is refused before anything starts, with the Configurator's dialog.
bool CfgutilEngine::refusesFirmware() {
    if (!utility_.usesCustomIPSW() || utility_.customIPSWExists())
        return false;
    utility_.showIPSWError();
    return true;
}

QString CfgutilEngine::firmwarePath() const {
    return utility_.usesCustomIPSW() ? utility_.customIPSWPath() : QString();
}

void CfgutilEngine::listDevices(Listing listing) {
    utility_.attachedDevicesWithCallback(std::move(listing));
}

void CfgutilEngine::restore(const DevicePtr& device, OutputBlock output, ErrorBlock error,
                            CompletedBlock completed) {
    utility_.restoreWithAC2ForDevice(device, std::move(output), std::move(error),
                                     std::move(completed));
}

void CfgutilEngine::cancel(const DevicePtr& device) {
    utility_.cancelRestore(device);
}

QStringList CfgutilEngine::errorLines(std::uint64_t ecid) const {
    return utility_.restoreErrorLines(ecid);
}

std::optional<int> CfgutilEngine::exitStatus(std::uint64_t ecid) const {
    return utility_.restoreExitStatus(ecid);
}

}  // namespace engines
