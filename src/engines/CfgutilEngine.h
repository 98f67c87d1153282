#pragma once

#include "restore/RestoreEngine.h"

#include <memory>

class ZMRConfigurator2Utility;

namespace engines {

// Apple Configurator's cfgutil behind the engine seam: every call goes to the Configurator
// utility as it always has, with its texts and alerts.
class CfgutilEngine final : public restore::RestoreEngine {
  public:
    explicit CfgutilEngine(ZMRConfigurator2Utility& utility);
    // Over a utility of its own (a restore with settings of its own).
    explicit CfgutilEngine(std::unique_ptr<ZMRConfigurator2Utility> utility);
    ~CfgutilEngine() override;

    QString name() const override;
    QString version() const override { return {}; }
    bool isInstalled() const override;
    core::Alert notInstalledAlert() const override;
    bool refusesFirmware() override;
    QString firmwarePath() const override;

    void listDevices(Listing listing) override;
    void restore(const DevicePtr& device, OutputBlock output, ErrorBlock error,
                 CompletedBlock completed) override;
    void cancel(const DevicePtr& device) override;

    QStringList errorLines(std::uint64_t ecid) const override;
    std::optional<int> exitStatus(std::uint64_t ecid) const override;

    ZMRConfigurator2Utility& utility() { return utility_; }

  private:
    std::unique_ptr<ZMRConfigurator2Utility> owned_;
    ZMRConfigurator2Utility& utility_;
};

}  // namespace engines
