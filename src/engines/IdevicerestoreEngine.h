#pragma once

#include "restore/RestoreEngine.h"

#include "usb/UsbRegistry.h"

#include <QString>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>

class ZMTaskWrapperWithBlocks;

namespace core {
class Clock;
class Settings;
}  // namespace core

namespace engines {

// libimobiledevice's idevicerestore behind the engine seam: one child process per Mac, named by
// its ECID, erasing, never prompting, with plain progress, its own log file in the state folder
// and a private working folder (the tool drops files in its current directory). Macs are listed
// from the USB registry, which is all the tool itself knows of them.
class IdevicerestoreEngine final : public restore::RestoreEngine {
  public:
    struct Collaborators {
        core::Settings* settings = nullptr;
        core::Alerts* alerts = nullptr;
        core::Clock* clock = nullptr;  // the runners' grace
        QString toolPath;              // absolute; empty when none was found
        QString stateFolder;           // the log files and working folders go below it
        std::function<std::optional<QList<usb::PropertyMap>>()> registry;
        // Given when neither the settings nor --ipsw name firmware (a simulated station's own).
        QString fallbackFirmware;
    };

    explicit IdevicerestoreEngine(Collaborators collaborators);
    ~IdevicerestoreEngine() override;

    // The command line of one Mac's restore, element 0 the tool.
    static QStringList command(const QString& toolPath, std::uint64_t ecid, const QString& logFile,
                               const QString& firmware);

    QString name() const override;
    QString version() const override;
    bool isInstalled() const override;
    core::Alert notInstalledAlert() const override;
    bool refusesFirmware() override;
    QString firmwarePath() const override;

    void listDevices(Listing listing) override;
    void restore(const DevicePtr& device, OutputBlock output, ErrorBlock error,
                 CompletedBlock completed) override;
    void cancel(const DevicePtr& device) override;

    bool isTransient(const QString& reason) const override;
    QStringList errorLines(std::uint64_t ecid) const override;
    std::optional<int> exitStatus(std::uint64_t ecid) const override;
    QString firmwareVersion(std::uint64_t ecid) const override;
    // The log file of the last restore of an ECID, kept beside its record.
    QString logFile(std::uint64_t ecid) const;

  private:
    struct Run;
    using Runner = std::shared_ptr<ZMTaskWrapperWithBlocks>;

    void start(const DevicePtr& device, const OutputBlock& output, const ErrorBlock& error,
               const CompletedBlock& completed);
    void end(const std::shared_ptr<Run>& run, int status);

    Collaborators c_;
    mutable QString version_;
    std::map<std::uint64_t, std::shared_ptr<Run>> runs_;
    std::map<std::uint64_t, QStringList> errors_;
    std::map<std::uint64_t, int> statuses_;
    std::map<std::uint64_t, QString> firmwareVersions_;
    std::map<std::uint64_t, QString> logFiles_;
    std::mutex pendingMutex_;
    std::set<std::uint64_t> pendingStarts_;
    // Work queued to the main thread checks this before touching an engine that may be gone.
    std::shared_ptr<int> lifetime_ = std::make_shared<int>(0);
};

}  // namespace engines
