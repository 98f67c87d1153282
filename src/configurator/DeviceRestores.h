#pragma once

#include "configurator/AC2Device.h"
#include "configurator/RestoreCommand.h"
#include "configurator/ZMTaskWrapperWithBlocks.h"

#include <QString>
#include <QStringList>
#include <QVariant>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>

namespace core {
class Clock;
}

namespace configurator {

// The restores of single Macs through the tool, one child process per ECID: their starts, the
// progress read from their output, their ends with the tool's last error lines and exit status,
// and their cancels, including a cancel that comes while a start is still on its way to the main
// thread.
class DeviceRestores {
  public:
    using DevicePtr = std::shared_ptr<AC2Device>;
    using OutputBlock =
        std::function<void(const DevicePtr& device, const QVariant& step, float progress)>;
    using ErrorBlock = std::function<void(const DevicePtr& device, const QString& chunk)>;
    using CompletedBlock =
        std::function<void(const DevicePtr& device, bool failed, const QString& message)>;
    using UnreadableProgressObserver =
        std::function<void(const DevicePtr& device, const QString& warning)>;
    using Runner = std::shared_ptr<ZMTaskWrapperWithBlocks>;
    // The custom firmware argument, asked just before a start; `stop` set means no start at all.
    using CustomIPSW = std::function<std::optional<QString>(bool* stop)>;

    struct Tool {
        QString toolPath;
        QString ptyPath;
        RestorePlatform platform = RestorePlatform::Linux;
        core::Clock* clock = nullptr;  // the runners' grace
    };

    explicit DeviceRestores(Tool tool);

    // Any thread: a start has been asked for and is on its way to the main thread.
    void noteStartPending(std::uint64_t ecid);
    // Main thread: the start has arrived; it runs unless the Mac was cancelled meanwhile. A Mac
    // whose ECID already has a restore running stops that one first.
    void start(const DevicePtr& device, const CustomIPSW& customIPSW, const OutputBlock& output,
               const ErrorBlock& error, const CompletedBlock& completed);
    // Main thread. Marks the device cancelled and stops its restore, if one runs.
    void cancel(const DevicePtr& device);

    void setUnreadableProgressObserver(UnreadableProgressObserver observer);
    // The runner of the restore under way for an ECID, if any (main thread).
    Runner task(std::uint64_t ecid) const;
    // The tool's last error lines and exit status of the last restore of an ECID that has ended
    // (main thread).
    QStringList errorLines(std::uint64_t ecid) const;
    std::optional<int> exitStatus(std::uint64_t ecid) const;

  private:
    void warnUnreadable(const DevicePtr& device, const QString& chunk,
                        std::set<ProgressLineProblem>& warned);
    std::function<void(std::int32_t)> endOf(
        const DevicePtr& device, std::shared_ptr<std::weak_ptr<ZMTaskWrapperWithBlocks>> self,
        std::shared_ptr<QStringList> errors, CompletedBlock completed);

    Tool tool_;
    std::map<std::uint64_t, Runner> tasks_;
    std::map<std::uint64_t, QStringList> errors_;
    std::map<std::uint64_t, int> statuses_;
    std::mutex pendingMutex_;
    std::set<std::uint64_t> pendingStarts_;
    UnreadableProgressObserver unreadableProgressObserver_;
    // Work queued to the main thread checks this before touching an object that may be gone.
    std::shared_ptr<int> lifetime_ = std::make_shared<int>(0);
};

}  // namespace configurator
