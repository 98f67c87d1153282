#include "restore/RestoreQueue.h"

#include "restore/EventNotification.h"
#include "restore/SoundPlayer.h"

#include "core/AppState.h"
#include "configurator/ZMRConfigurator2Utility.h"
#include "core/Clock.h"
#include "core/Log.h"
#include "core/SettingRanges.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"
#include "records/RestoreRecorder.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>

#include <QHash>
#include <QUuid>

namespace restore {
namespace {

// The log format names each line's source by its original path, not by this file; keep it.
const QString source = QStringLiteral("Views/DeviceTableView");
const QString operation = QStringLiteral("doRestore(devices:)");
const QString restoredSuccessfully = QStringLiteral("Restored Successfully");
const QString restoreCancelled = QStringLiteral("Restore Cancelled");

void logLevel1(const QString& message, int line) {
    ZMRLogAtLevel1(message, source, line, operation);
}
void logLevel0(const QString& message, int line) {
    ZMRLogAtLevel0(message, source, line, operation);
}
void logDebug(const QString& message, int line) { ZMRLogDebugAt(message, source, line, operation); }

}  // namespace

QString realText(float value) {
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, value).ptr;
    QString result = QString::fromLatin1(text, end - text);
    // A whole number still reads as a real one: "1.0", not "1"; "1e-05", "inf" and "nan" stay.
    if (std::find_if(text, end, [](char c) { return c == '.' || std::isalpha(c); }) == end)
        result += QStringLiteral(".0");
    return result;
}

// What is left of one batch while its restores run: the batch's ECIDs for the event scripts and
// how many devices have yet to complete. Touched on the main thread only.
struct RestoreQueue::Batch {
    QString id;
    QString devices;
    int outstanding = 0;
    bool failed = false;
    bool cancelled = false;
    QHash<std::uint64_t, int> retries;        // by ECID
    QHash<std::uint64_t, QString> retriedAfter;  // "retried after: <the engine's reason>"
};

RestoreQueue::RestoreQueue(RestoreSession& session)
    : session_(session), c_(session.c_), queue_(QStringLiteral("com.kestrune.Tarvel.restore")) {}

RestoreQueue::~RestoreQueue() = default;

unsigned RestoreQueue::pauseBetweenStarts(const QString& text) {
    const std::optional<qint64> seconds = core::strictDecimalInteger(text);
    if (!seconds || *seconds < 0 || *seconds > std::numeric_limits<std::uint32_t>::max())
        return 3;
    return static_cast<unsigned>(*seconds);
}

QString RestoreQueue::joinedEcids(const DeviceList& devices) {
    QStringList ecids;
    for (const DevicePtr& device : devices) ecids << ecidHex(device->ecid());
    return ecids.join(',');
}

void RestoreQueue::submit(const DeviceList& devices) {
    const QString batchId = QUuid::createUuid().toString(QUuid::WithoutBraces);
    if (c_.recorder)
        c_.recorder->batchSubmitted(batchId, devices);
    queue_.async([this, devices, batchId] { doRestore(devices, batchId); });
}

void RestoreQueue::doRestore(const DeviceList& devices, const QString& batchId) {
    std::weak_ptr<int> alive = lifetime_;
    session_.isCancelling_.store(false);
    dispatch::main([this, alive] {
        if (!alive.expired())
            session_.setIsCancelling(false);
    });
    postRestoreStarted(devices);
    // A bench of hub ports restores without the host port's cycle.
    if (c_.hostPort.batchStarted)
        c_.hostPort.batchStarted();

    auto batch = std::make_shared<Batch>();
    batch->id = batchId;
    batch->devices = joinedEcids(devices);
    batch->outstanding = static_cast<int>(devices.size());
    for (qsizetype i = 0; i < devices.size(); ++i) {
        // A cancel between starts, or while waiting for a slot, leaves the rest unstarted.
        const int cap = int(c_.settings->boundedNumber(core::keys::maxConcurrentRestores));
        const bool slot = slots_.take(
            cap, [this] { return session_.isCancelling_.load(); },
            [this] { setProgressMessage(QStringLiteral("Waiting for a restore to end")); });
        if (!slot) {
            skipUnstarted(batch, devices.mid(i));
            break;
        }
        startDevice(batch, devices[i]);
        if (i + 1 == devices.size())
            break;
        setProgressMessage(QStringLiteral("Waiting to start next process"));
        c_.clock->sleepSeconds(
            pauseBetweenStarts(c_.settings->stringForKey(core::keys::timeBetweenProcesses)));
    }
    setProgressMessage(QString(""));
}

void RestoreQueue::postRestoreStarted(const DeviceList& devices) {
    if (!c_.settings->boolForKey(core::keys::shouldUseEventScript))
        return;
    const QString scriptPath = c_.settings->stringForKey(core::keys::eventScriptPath);
    for (const DevicePtr& device : devices) {
        if (c_.events->isDisabled()) {
            ZMRLogAtLevel1(
                QStringLiteral("Event notification is disabled. Please check your settings."),
                QStringLiteral("EventNotification"), __LINE__,
                QStringLiteral("postEvent(_:status:info:scriptPath:)"));
            continue;
        }
        const QVariantMap info = device->deviceinfo();
        std::weak_ptr<int> alive = lifetime_;
        dispatch::main([this, alive, info, scriptPath] {
            if (!alive.expired())
                c_.events->postEvent(QStringLiteral("restoreStarted"), true, info, scriptPath);
        });
    }
}

void RestoreQueue::startDevice(const std::shared_ptr<Batch>& batch, const DevicePtr& device) {
    removeCacheIfWanted();
    std::weak_ptr<int> alive = lifetime_;
    const QString firmwarePath = c_.engine->firmwarePath();
    const records::FirmwareUsed firmware = c_.recorder && !firmwarePath.isEmpty()
                                               ? records::FirmwareUsed::ofFile(firmwarePath)
                                               : records::FirmwareUsed{};
    // The start and a cancel are decided on the main thread, where a cancel is made: a Mac
    // whose start was due when the batch was cancelled is never started.
    dispatch::main([this, alive, device, batch, firmware] {
        if (alive.expired())
            return;
        if (session_.isCancelling()) {
            slots_.release();
            cancelUnstarted(batch, {device});
            return;
        }
        device->setDidCancel(false);
        device->setIsRestoring(true);
        if (c_.recorder)
            c_.recorder->deviceStarted(batch->id, *device, firmware);
        session_.setDeviceStatus(device, QStringLiteral("Preparing for restore..."));
        launch(batch, device);
    });
}

void RestoreQueue::launch(const std::shared_ptr<Batch>& batch, const DevicePtr& device) {
    std::weak_ptr<int> alive = lifetime_;
    c_.engine->restore(
        device,
        [this, alive](const DevicePtr& restoring, const QVariant& step, float progress) {
            if (alive.expired())
                return;
            const QString text = step.toString();
            session_.setDeviceStatus(restoring, QStringLiteral("%1:%2:%3")
                                                    .arg(restoring->ecid())
                                                    .arg(text, realText(progress)));
            emit session_.deviceProgress(restoring, text, progress);
            logDebug(text, __LINE__);
        },
        [this, alive](const DevicePtr& failing, const QString& message) {
            if (alive.expired())
                return;
            session_.appendHistory(failing, message);
            logLevel0(message, __LINE__);
        },
        [this, alive, batch, device](const DevicePtr&, bool failed, const QString& message) {
            if (!alive.expired())
                deviceCompleted(batch, device, failed, message);
        });
}

// A restore the engine lost on its way is started again once the Mac is back in DFU mode
// through its hub port; the slot it held stays its own meanwhile.
bool RestoreQueue::retryThroughHub(const std::shared_ptr<Batch>& batch, const DevicePtr& device,
                                   const QString& reason) {
    const RestoreSession::HubRetry& hub = c_.hubRetry;
    const int allowed = int(c_.settings->boundedNumber(core::keys::restoreRetries));
    int& retries = batch->retries[device->ecid()];
    if (!hub.reenterDfu || !c_.engine->isTransient(reason) || retries >= allowed ||
        !hub.isOnHubPort(device) || session_.isCancelling())
        return false;
    ++retries;
    const QString note = QStringLiteral("retried after: %1").arg(reason);
    batch->retriedAfter[device->ecid()] = note;
    session_.appendHistory(device, note);
    logLevel1(QStringLiteral("%1: %2").arg(formatEcid(device->ecid()), note), __LINE__);
    session_.setDeviceStatus(device, QStringLiteral("Putting the Mac back into DFU mode"));
    std::weak_ptr<int> alive = lifetime_;
    hub.reenterDfu(device, [this, alive, batch, device, reason](bool inDfu) {
        if (alive.expired())
            return;
        if (!inDfu || session_.isCancelling() || device->didCancel()) {
            deviceCompleted(batch, device, true, reason, false);
            return;
        }
        session_.setDeviceStatus(device, QStringLiteral("Preparing for restore..."));
        launch(batch, device);
    });
    return true;
}

void RestoreQueue::removeCacheIfWanted() {
    if (!c_.settings->boolForKey(core::keys::removeACCache))
        return;
    c_.configurator->clearAC2CacheWithCompletedBlock([](bool success, const QString& message) {
        if (!success)
            logLevel1(message, __LINE__);
    });
}

void RestoreQueue::skipUnstarted(const std::shared_ptr<Batch>& batch, const DeviceList& unstarted) {
    std::weak_ptr<int> alive = lifetime_;
    dispatch::main([this, alive, batch, unstarted] {
        if (!alive.expired())
            cancelUnstarted(batch, unstarted);
    });
}

void RestoreQueue::cancelUnstarted(const std::shared_ptr<Batch>& batch,
                                   const DeviceList& unstarted) {
        for (const DevicePtr& device : unstarted) {
            if (c_.recorder)
                c_.recorder->deviceEnded(*device, records::Outcome::cancelled, std::nullopt, {});
            session_.appendHistory(device, restoreCancelled);
            session_.setDeviceStatus(device, restoreCancelled);
            emit session_.deviceFinished(device);
        }
        if (c_.settings->boolForKey(core::keys::shouldUseEventScript))
            postEvent(QStringLiteral("restoreCancelled"), true,
                      {{QStringLiteral("devices"), joinedEcids(unstarted)}});
        session_.setWasLastDeviceCancelled();
        batch->cancelled = true;
        settle(batch, static_cast<int>(unstarted.size()));
}

void RestoreQueue::deviceCompleted(const std::shared_ptr<Batch>& batch, const DevicePtr& device,
                                   bool failed, const QString& message, bool mayRetry) {
    if (failed && mayRetry && !device->didCancel() && retryThroughHub(batch, device, message))
        return;
    slots_.release();
    recordOutcome(*batch, device, failed, message);
    logLevel0(message, __LINE__);
    const bool useScript = c_.settings->boolForKey(core::keys::shouldUseEventScript);
    const QVariantMap devices{{QStringLiteral("devices"), batch->devices}};
    device->setIsRestoring(false);

    if (!device->didCancel() && !failed && !session_.isCancelling()) {
        session_.appendHistory(device, restoredSuccessfully);
        session_.setDeviceStatus(device, QStringLiteral("Successful"));
        session_.countRestored();
        if (c_.appState && c_.appState->isAutoRestoreOn()) {
            if (c_.hostPort.macRestored)
                c_.hostPort.macRestored();
        } else if (useScript)
            postEvent(QStringLiteral("restoreCompleted"), true, devices);
    } else if (failed && !device->didCancel()) {
        batch->failed = true;
        session_.appendHistory(device, message);
        if (useScript) {
            QVariantMap info = devices;
            info.insert(QStringLiteral("error"), message);
            postEvent(QStringLiteral("restoreCompleted"), false, info);
        }
        session_.setIsCancelling(false);
        session_.setDeviceStatus(device, message);
        session_.setRestoreError(message);
        if (c_.settings->boolForKey(core::keys::shouldPlaySound))
            c_.sounds->play(true);
    } else if (!failed && !device->didCancel()) {
        // Restored to the end while the batch was being cancelled: it is recorded as it ended.
        session_.appendHistory(device, restoredSuccessfully);
        session_.setDeviceStatus(device, QStringLiteral("Successful"));
        session_.countRestored();
    } else if (device->didCancel()) {
        batch->cancelled = true;
        session_.appendHistory(device, restoreCancelled);
        session_.setDeviceStatus(device, restoreCancelled);
        if (useScript)
            postEvent(QStringLiteral("restoreCancelled"), true, devices);
        session_.setWasLastDeviceCancelled();
    }
    emit session_.deviceFinished(device);
    settle(batch, 1);
}

void RestoreQueue::recordOutcome(const Batch& batch, const DevicePtr& device, bool failed,
                                 const QString& message) {
    if (!c_.recorder)
        return;
    // The same reading of the completion as deviceCompleted's: a cancel wins over a failure,
    // and a restore that reached its end during a cancel is restored.
    const records::Outcome outcome = device->didCancel() ? records::Outcome::cancelled
                                     : failed            ? records::Outcome::failed
                                                         : records::Outcome::restored;
    const QStringList errors = c_.engine->errorLines(device->ecid());
    QString lastError = outcome == records::Outcome::failed ? message
                        : errors.isEmpty()                 ? QString()
                                                           : errors.last();
    // A Mac restored on its second try keeps why it needed one.
    if (const QString retried = batch.retriedAfter.value(device->ecid()); !retried.isEmpty())
        lastError = lastError.isEmpty() || outcome == records::Outcome::restored
                        ? retried
                        : QStringLiteral("%1 (%2)").arg(lastError, retried);
    c_.recorder->deviceEnded(
        *device, outcome, c_.engine->exitStatus(device->ecid()), lastError,
        {records::EngineReport::engineText(c_.engine->name(), c_.engine->version()),
         c_.engine->firmwareVersion(device->ecid()), errors});
}

void RestoreQueue::settle(const std::shared_ptr<Batch>& batch, int devices) {
    batch->outstanding -= devices;
    if (batch->outstanding > 0)
        return;
    if (!batch->failed && !batch->cancelled &&
        c_.settings->boolForKey(core::keys::shouldPlaySound))
        c_.sounds->play(false);
    session_.finishBatch(batch->failed, batch->cancelled);
}

void RestoreQueue::postEvent(const QString& event, bool status, const QVariantMap& info) {
    c_.events->postEvent(event, status, info,
                         c_.settings->stringForKey(core::keys::eventScriptPath));
}

void RestoreQueue::setProgressMessage(const QString& message) {
    if (c_.appState)
        c_.appState->setProgressMessage(message);
}

}  // namespace restore
