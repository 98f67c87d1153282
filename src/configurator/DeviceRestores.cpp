#include "configurator/DeviceRestores.h"

#include "core/Dispatch.h"
#include "core/Log.h"

namespace configurator {
namespace {

// How many of the tool's last error lines a failed restore keeps.
constexpr qsizetype kKeptErrorLines = 5;

QString failureMessage(int status) {
    return QStringLiteral(
               "There was an error restoring the device with status %1. Please check log for "
               "error message. You can also try restoring with Apple Configurator to help "
               "identify issues.")
        .arg(status);
}

void keepLast(QStringList& kept, const QStringList& lines) {
    kept += lines;
    if (kept.size() > kKeptErrorLines)
        kept = kept.mid(kept.size() - kKeptErrorLines);
}

}  // namespace

DeviceRestores::DeviceRestores(Tool tool) : tool_(std::move(tool)) {}

void DeviceRestores::noteStartPending(std::uint64_t ecid) {
    std::lock_guard lock(pendingMutex_);
    pendingStarts_.insert(ecid);
}

void DeviceRestores::start(const DevicePtr& device, const CustomIPSW& customIPSW,
                           const OutputBlock& outputBlock, const ErrorBlock& errorBlock,
                           const CompletedBlock& completedBlock) {
    if (device) {
        std::lock_guard lock(pendingMutex_);
        pendingStarts_.erase(device->ecid());
    }
    if (!device || device->ecid() == 0) {
        completedBlock(nullptr, true, QStringLiteral("invalid device"));
        return;
    }
    const std::uint64_t ecid = device->ecid();
    // Cancelled before its start came round: it never starts.
    if (device->didCancel()) {
        completedBlock(device, true, QStringLiteral("Restore Cancelled"));
        return;
    }
    // The stopped run's end handling removes it from tasks and reports it as failed.
    if (Runner running = task(ecid))
        running->stopProcess();

    bool stop = false;
    const std::optional<QString> custom = customIPSW(&stop);
    if (stop)
        return;
    const QStringList command =
        deviceRestoreCommand(tool_.platform, tool_.toolPath, tool_.ptyPath, ecid, custom);
    ZMRLogDebug(QStringLiteral("Restoring"));

    auto self = std::make_shared<std::weak_ptr<ZMTaskWrapperWithBlocks>>();
    auto errors = std::make_shared<QStringList>();
    auto warned = std::make_shared<std::set<ProgressLineProblem>>();
    std::weak_ptr<int> alive = lifetime_;
    auto output = [this, alive, device, outputBlock, errors, warned](const QString& chunk) {
        ZMRLogDebug(QStringLiteral("output-->%1").arg(chunk));
        ZMRLogDebug(chunk);
        keepLast(*errors, errorLinesOf(chunk, false));
        if (!alive.expired())
            warnUnreadable(device, chunk, *warned);
        const std::optional<RestoreProgress> progress = parseRestoreProgress(chunk);
        if (!progress)
            return;
        outputBlock(device, progress->step, progress->progress);
        device->setRestoreStatus(restoreStatusText(progress->progress));
    };
    auto errorOutput = [device, errorBlock, errors](const QString& chunk) {
        ZMRLogDebug(QStringLiteral("errorOutputBlock: %1").arg(chunk));
        keepLast(*errors, errorLinesOf(chunk, true));
        errorBlock(device, chunk);
    };
    auto runner = std::make_shared<ZMTaskWrapperWithBlocks>(
        nullptr, endOf(device, self, errors, completedBlock), output, errorOutput, command,
        *tool_.clock);
    *self = runner;
    tasks_[ecid] = runner;
    runner->startProcess();
}

std::function<void(std::int32_t)> DeviceRestores::endOf(
    const DevicePtr& device, std::shared_ptr<std::weak_ptr<ZMTaskWrapperWithBlocks>> self,
    std::shared_ptr<QStringList> errors, CompletedBlock completedBlock) {
    std::weak_ptr<int> alive = lifetime_;
    const std::uint64_t ecid = device->ecid();
    return [this, alive, self, ecid, device, completedBlock, errors](std::int32_t) {
        Runner runner = self->lock();
        if (!alive.expired()) {
            tasks_.erase(ecid);
            errors_[ecid] = *errors;
        }
        dispatch::main([this, alive, runner, device, completedBlock, errors, ecid] {
            const int status = runner ? runner->terminationStatus() : -1;
            if (!alive.expired())
                statuses_[ecid] = status;
            if (status == 0) {
                completedBlock(device, false, QString(""));
                return;
            }
            // Written whatever showDebug says: the log is where a technician looks for the why.
            if (!device->didCancel())
                ZMRLogLevel0(QStringLiteral("Restore of %1 failed with status %2: %3")
                                 .arg(QString::number(ecid, 16).toUpper())
                                 .arg(status)
                                 .arg(errors->isEmpty() ? QStringLiteral("the tool gave no reason")
                                                        : errors->join(QStringLiteral(" / "))));
            completedBlock(device, true, failureMessage(status));
        });
    };
}

// Once per restore and kind of problem: a tool that changed its format changes it on every line.
void DeviceRestores::warnUnreadable(const DevicePtr& device, const QString& chunk,
                                    std::set<ProgressLineProblem>& warned) {
    for (const auto& unreadable : unreadableProgressLines(chunk)) {
        if (!warned.insert(unreadable.problem).second)
            continue;
        const QString warning = unreadableProgressWarning(device->ecid(), unreadable);
        ZMRLogLevel1(warning);
        if (unreadableProgressObserver_)
            unreadableProgressObserver_(device, warning);
    }
}

void DeviceRestores::cancel(const DevicePtr& device) {
    if (!device || device->ecid() == 0)
        return;
    if (Runner runner = task(device->ecid())) {
        // Set first, so the completion that follows can tell a cancel from a failure.
        device->setDidCancel(true);
        runner->stopProcess();
        return;
    }
    // A restore whose start is still on its way to the main thread sees the mark and never starts.
    std::lock_guard lock(pendingMutex_);
    if (pendingStarts_.count(device->ecid()))
        device->setDidCancel(true);
}

void DeviceRestores::setUnreadableProgressObserver(UnreadableProgressObserver observer) {
    unreadableProgressObserver_ = std::move(observer);
}

DeviceRestores::Runner DeviceRestores::task(std::uint64_t ecid) const {
    const auto found = tasks_.find(ecid);
    return found == tasks_.end() ? nullptr : found->second;
}

QStringList DeviceRestores::errorLines(std::uint64_t ecid) const {
    const auto found = errors_.find(ecid);
    return found == errors_.end() ? QStringList() : found->second;
}

std::optional<int> DeviceRestores::exitStatus(std::uint64_t ecid) const {
    const auto found = statuses_.find(ecid);
    return found == statuses_.end() ? std::nullopt : std::optional<int>(found->second);
}

}  // namespace configurator
