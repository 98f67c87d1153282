#pragma once

#include "configurator/AC2Device.h"
#include "configurator/CacheCleanup.h"
#include "configurator/DeviceListing.h"
#include "configurator/DeviceRestores.h"
#include "configurator/RestoreCommand.h"
#include "configurator/UsbLookups.h"
#include "configurator/ZMTaskWrapperWithBlocks.h"

#include "core/Alerts.h"
#include "core/Clock.h"
#include "core/Settings.h"

#include <QUrl>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

// The one object through which the system talks to Apple Configurator's command-line tool: it
// lists the attached devices, restores and cancels, and clears the tool's temporary files.
class ZMRConfigurator2Utility {
  public:
    using DeviceListCallback = std::function<void(const configurator::DeviceList& devices)>;
    using DevicePtr = configurator::DeviceRestores::DevicePtr;
    using RestoreOutputBlock = configurator::DeviceRestores::OutputBlock;
    using RestoreErrorBlock = configurator::DeviceRestores::ErrorBlock;
    using RestoreCompletedBlock = configurator::DeviceRestores::CompletedBlock;
    using Runner = configurator::DeviceRestores::Runner;
    using UnreadableProgressObserver = configurator::DeviceRestores::UnreadableProgressObserver;

    struct Collaborators {
        core::Settings* settings = nullptr;
        core::Alerts* alerts = nullptr;
        core::Clock* clock = nullptr;  // the runners' grace
        QString toolPath;
        QString ptyPath;  // runs the tool on a pseudo-terminal where the platform needs it
        configurator::RestorePlatform platform = configurator::currentRestorePlatform();
        configurator::UsbLookupsFactory usbLookups;
        configurator::CachePlaces cachePlaces;
        configurator::ItemRemover remover;
        std::function<void(const QUrl&)> openURL;
    };

    // The shared settings, alerts and clock, the real cache places and USB registry, the tool at
    // Apple's path unless TARVEL_CFGUTIL names another, and tarvel-pty beside this executable.
    static Collaborators defaultCollaborators();
    static ZMRConfigurator2Utility& sharedManager();

    explicit ZMRConfigurator2Utility(Collaborators collaborators);
    ~ZMRConfigurator2Utility();
    ZMRConfigurator2Utility(const ZMRConfigurator2Utility&) = delete;
    ZMRConfigurator2Utility& operator=(const ZMRConfigurator2Utility&) = delete;

    const QString& toolPath() const { return c_.toolPath; }
    const QString& ptyPath() const { return c_.ptyPath; }
    configurator::RestorePlatform platform() const { return c_.platform; }
    bool isAC2Installed() const;

    // The callback comes at once on this thread with nothing when the tool is missing or a
    // listing runs; otherwise on the main thread when the listing ends; never when the tool
    // cannot be launched.
    void attachedDevicesWithCallback(DeviceListCallback callback);
    // The start of what the tool printed when the last listing could not be read, nothing when
    // it could (its records are then the whole truth).
    std::optional<QString> unreadableListingOutput() const;

    // Returns at once; the restore starts, reports and completes on the main thread. A restore of
    // a device whose ECID already has one running stops that one first.
    void restoreWithAC2ForDevice(DevicePtr device, RestoreOutputBlock outputBlock,
                                 RestoreErrorBlock errorBlock,
                                 RestoreCompletedBlock completedBlock);
    // Told on the main thread, and written to the log, when a restore's standard output has a line
    // that cannot be read: once per restore and kind of problem, as a tool that changed its format
    // changes it on every line. Main thread.
    void setUnreadableProgressObserver(UnreadableProgressObserver observer);
    // Main thread. Marks the device cancelled and stops its restore, if one runs.
    void cancelRestore(const DevicePtr& device);
    // Asks the listing and the single restore to terminate; per-device restores go on.
    void cancelOperation();
    // Restores whatever single device the tool picks; call it on the main thread.
    void restoreWithAC2();
    bool customIPSWExists() const;
    // Whether restores are given the user's firmware file, and which.
    bool usesCustomIPSW() const;
    QString customIPSWPath() const;
    void showIPSWError();

    // Synchronous, on the caller's thread.
    void clearAC2CacheWithCompletedBlock(const configurator::CacheCleanupCompletion& completed);

    Runner attachedDevicesWrapper() const;
    Runner taskWrapper() const { return taskWrapper_; }
    // The runner of the restore under way for an ECID, if any (main thread).
    Runner task(std::uint64_t ecid) const { return restores_.task(ecid); }
    // The tool's last error lines of the last restore of an ECID that has ended (main thread).
    QStringList restoreErrorLines(std::uint64_t ecid) const { return restores_.errorLines(ecid); }
    // The tool's exit status of the last restore of an ECID that has ended (main thread).
    std::optional<int> restoreExitStatus(std::uint64_t ecid) const {
        return restores_.exitStatus(ecid);
    }

  private:
    std::optional<QString> customIPSWArgument(bool* stop);
    void noteListingOutput(const QString& output);

    Collaborators c_;
    mutable std::mutex listingMutex_;
    Runner attachedDevicesWrapper_;
    std::optional<QString> unreadableListingOutput_;
    Runner taskWrapper_;
    configurator::DeviceRestores restores_;
    // Work queued to the main thread checks this before touching an object that may be gone.
    std::shared_ptr<int> lifetime_ = std::make_shared<int>(0);
};
