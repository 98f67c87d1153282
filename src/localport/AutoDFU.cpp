#include "localport/AutoDFU.h"

#include "usb/DeviceIOKitInfo.h"
#include "usb/USBManager.h"

#include "core/Clock.h"
#include "core/Dispatch.h"
#include "core/Log.h"
#include "core/NotificationCenter.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"
#include "localport/ZMRPrivHelperToolController.h"

#include <QCoreApplication>
#include <QList>

#include <cstdio>
#include <cstdlib>
#include <limits>

namespace {

// The log format names each line's source by its original path, not by this file; keep it.
const QString source = QStringLiteral("Model/AutoDFU");

void log(const QString& message, int line, const char* function) {
    ZMRLogAtLevel1(message, source, line, QString::fromLatin1(function));
}

bool hasDeviceOnDFUPort(const QList<DeviceIOKitInfo>& devices) {
    return std::any_of(devices.begin(), devices.end(), [](const DeviceIOKitInfo& device) {
        return device.usbAddress == AutoDFU::dfuPortAddress;
    });
}

// The pause is handed straight to a whole-second sleep; a value that is no such number is a
// broken installation, not something to guess around.
unsigned recoverySleepSeconds(const core::Settings& settings) {
    const qint64 seconds = settings.integerForKey(core::keys::recoverySleepBetweenReboots);
    if (seconds < 0 || seconds > std::numeric_limits<std::uint32_t>::max()) {
        std::fprintf(stderr,
                     "Fatal error: recoverySleepBetweenReboots %lld is not a whole number "
                     "of seconds that fits in 32 bits\n",
                     static_cast<long long>(seconds));
        std::abort();
    }
    return static_cast<unsigned>(seconds);
}

}  // namespace

const char* autoTarvStateName(AutoTarvState state) {
    switch (state) {
        case AutoTarvState::unknown:
            return "unknown";
        case AutoTarvState::waitingForDFU:
            return "waitingForDFU";
        case AutoTarvState::inDFU:
            return "inDFU";
        case AutoTarvState::stop:
            return "stop";
        case AutoTarvState::restoring:
            return "restoring";
        case AutoTarvState::restored:
            return "restored";
    }
    return "unknown";
}

AutoDFU::Collaborators AutoDFU::defaultCollaborators() {
    Collaborators c;
    c.center = &core::NotificationCenter::defaultCenter();
    c.helper = []() -> LocalPortHelper& { return ZMRPrivHelperToolController::sharedHelper(); };
    c.settings = &core::Settings::shared();
    c.clock = &core::Clock::system();
    c.timers = usb::mainLoopRepeatingTimers();
    c.print = [](const QString& line) {
        std::printf("%s\n", qPrintable(line));
        std::fflush(stdout);
    };
    return c;
}

AutoDFU& AutoDFU::shared() {
    static AutoDFU instance;
    return instance;
}

AutoDFU::AutoDFU() : AutoDFU(defaultCollaborators()) {}

AutoDFU::AutoDFU(Collaborators collaborators) : c_(std::move(collaborators)) {
    qRegisterMetaType<AutoTarvState>();
    if (QCoreApplication::instance() && thread() != QCoreApplication::instance()->thread())
        moveToThread(QCoreApplication::instance()->thread());
    addedToken_ = c_.center->addObserver(
        USBManager::deviceAddedNotification,
        [this](const QString&, const QVariantMap& userInfo) { deviceAdded(userInfo); });
    removedToken_ = c_.center->addObserver(
        USBManager::deviceRemovedNotification,
        [this](const QString&, const QVariantMap& userInfo) { deviceRemoved(userInfo); });
}

AutoDFU::~AutoDFU() {
    c_.center->removeObserver(addedToken_);
    c_.center->removeObserver(removedToken_);
    dropTimer();
}

void AutoDFU::setAutoTarvState(AutoTarvState state) {
    if (autoTarvState_.exchange(state) != state)
        emit autoTarvStateChanged(state);
}

void AutoDFU::startTimer() {
    dropTimer();
    isRunning_.store(true);
    timer_ = c_.timers(1.0, [this] { timerFired(); });
}

void AutoDFU::dropTimer() {
    if (!timer_)
        return;
    timer_->invalidate();
    timer_.reset();
}

void AutoDFU::timerFired() {
    if (!isRunning())
        return;
    switch (autoTarvState()) {
        case AutoTarvState::restoring:
        case AutoTarvState::restored:
            return;
        case AutoTarvState::stop:
            print(QStringLiteral("stop"));
            return;
        case AutoTarvState::inDFU:
            print(QStringLiteral("inDFU state"));
            return;
        case AutoTarvState::unknown:
            if (autoDFUMode())
                requestDFU();
            return;
        case AutoTarvState::waitingForDFU:
            print(QStringLiteral("waiting for DFU state"));
            if (waitingForDFUCounter_ < waitingForDFUTicks) {
                ++waitingForDFUCounter_;
                return;
            }
            print(
                QStringLiteral("didnt go into dfu after timeout. resetting back to trying to put "
                               "in DFU mode"));
            waitingForDFUCounter_ = 0;
            setAutoTarvState(AutoTarvState::unknown);
            return;
    }
}

// No tick runs while the request is out, which may take as long as an administrator's password
// prompt; its end, whatever it says, starts them again, so a failed request is simply repeated on
// the next tick.
void AutoDFU::requestDFU() {
    isRunning_.store(false);
    dropTimer();
    LocalPortHelper& helper = c_.helper();
    helper.installToolIfNecessary();
    std::weak_ptr<int> alive = lifetime_;
    helper.enterDFUMode(
        [this, alive](std::int64_t status) {
            dispatch::main([this, alive, status] {
                if (alive.expired())
                    return;
                if (status == 0) {
                    log(QStringLiteral("putting in waiting for DFU mode"), __LINE__,
                        "timerFired()");
                    waitingForDFUCounter_ = 0;
                    setAutoTarvState(AutoTarvState::waitingForDFU);
                }
                startTimer();
            });
        },
        [this, alive](const HelperFailure& failure) {
            dispatch::main([this, alive, failure] {
                if (!alive.expired())
                    dfuRequestFailed(failure);
            });
        });
}

// A refusal or a dismissed prompt would only come back with every tick, a password prompt a
// second: the switch goes off and says why instead.
void AutoDFU::dfuRequestFailed(const HelperFailure& failure) {
    print(QStringLiteral("DFU request failed: %1").arg(failure.detail));
    if (failure.kind == HelperFailure::Kind::unreachable) {
        startTimer();
        return;
    }
    setAutomaticDFU(false);
    emit automaticDFURefused(failure);
}

void AutoDFU::deviceAdded(const QVariantMap& userInfo) {
    if (!isRunning())
        return;
    const QVariant devices = userInfo.value(USBManager::devicesKey);
    if (devices.metaType() != QMetaType::fromType<QList<DeviceIOKitInfo>>() ||
        !hasDeviceOnDFUPort(devices.value<QList<DeviceIOKitInfo>>())) {
        log(QStringLiteral("Device not on DFU port"), __LINE__, "deviceAdded(_:)");
        return;
    }
    switch (autoTarvState()) {
        case AutoTarvState::inDFU:
            log(QStringLiteral("Device already in DFU mode. Ignoring"), __LINE__,
                "deviceAdded(_:)");
            return;
        case AutoTarvState::restored:
            log(QStringLiteral("Device Restored. Ignoring device added"), __LINE__,
                "deviceAdded(_:)");
            return;
        case AutoTarvState::restoring:
            log(QStringLiteral("Device restoring. Ignoring device insertion"), __LINE__,
                "deviceAdded(_:)");
            return;
        default:
            log(QStringLiteral("device on DFU port and in DFU mode"), __LINE__, "deviceAdded(_:)");
            setAutoTarvState(AutoTarvState::inDFU);
    }
}

// A Mac entering DFU mode drops off the bus first; that removal must not reset the cycle.
void AutoDFU::deviceRemoved(const QVariantMap& userInfo) {
    const AutoTarvState state = autoTarvState();
    if (state == AutoTarvState::restoring || !isRunning() || state == AutoTarvState::waitingForDFU)
        return;
    print(QStringLiteral("device unplugged. setting to check"));
    if (hasDeviceOnDFUPort(USBManager::devicesInUserInfo(userInfo)))
        setAutoTarvState(AutoTarvState::unknown);
}

void AutoDFU::setAutomaticDFU(bool on) {
    if (on) {
        setAutoTarvState(AutoTarvState::unknown);
        std::weak_ptr<int> alive = lifetime_;
        dispatch::main([this, alive] {
            if (!alive.expired())
                startTimer();
        });
        autoDFUMode_.store(true);
        return;
    }
    autoDFUMode_.store(false);
    isRunning_.store(false);
    dropTimer();
}

void AutoDFU::setRestoreAutomatically(bool on) {
    if (on) {
        autoRestoreMode_.store(true);
        setAutoTarvState(AutoTarvState::unknown);
        std::weak_ptr<int> alive = lifetime_;
        dispatch::main([this, alive] {
            if (!alive.expired())
                startTimer();
        });
        return;
    }
    isRunning_.store(false);
    dropTimer();
}

void AutoDFU::restoreFinished() {
    setAutoTarvState(AutoTarvState::restored);
    if (!shouldBootToRecoveryAfterRestore())
        return;
    // The end is announced from the main thread, after everything the run did.
    std::weak_ptr<int> alive = lifetime_;
    dispatch::global([this, alive] {
        recoveryMode([](const QString&) {},
                     [this, alive] {
                         dispatch::main([this, alive] {
                             if (!alive.expired())
                                 emit recoveryAfterRestoreFinished();
                         });
                     });
    });
}

void AutoDFU::recoveryMode(const std::function<void(const QString& message)>& update,
                           const std::function<void()>& completion) {
    // The shown count runs from 2 to 6 while the log counts 0 to 4; both are what technicians
    // have always seen.
    for (int counter = 2; counter < 7; ++counter) {
        c_.helper().reboot([](std::int64_t) {}, {});
        c_.clock->sleepSeconds(recoverySleepSeconds(*c_.settings));
        update(QStringLiteral("Restarting %1 of 5").arg(counter));
        log(QStringLiteral("Restarting %1 of 5 times").arg(counter - 2), __LINE__,
            "recoveryMode(update:completion:)");
    }
    completion();
}

void AutoDFU::print(const QString& line) const {
    if (c_.print)
        c_.print(line);
}
