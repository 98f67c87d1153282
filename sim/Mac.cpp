#include "Mac.h"

#include <array>
#include <optional>

namespace sim {

namespace {

constexpr std::array<unsigned char, 16> rebootMessage = {
    0x04, 0x00, 0x00, 0x00, 0x12, 0x80, 0xac, 0x05, 0x05, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x80};
constexpr std::array<unsigned char, 16> dfuMessage = {
    0x04, 0x00, 0x00, 0x00, 0x12, 0x80, 0xac, 0x05, 0x06, 0x01, 0x00, 0x00, 0x00, 0x00, 0x01, 0x80};

struct RestoreStep {
    const char* step;
    double progress;
    std::optional<RestoreStage> reenumerateAs;  // the Mac leaves the bus and returns as this
};

// What a restore reports, one entry per tenth of the restore's duration. Like a real Mac, it
// re-enumerates on USB as the tool moves it from the boot ROM to the restore system.
const std::array<RestoreStep, 10> restoreSteps = {{
    {"Preparing restore", 0.0, std::nullopt},
    {"Verifying restore image", 0.05, std::nullopt},
    {"Restoring", 0.1, RestoreStage::Recovery},
    {"Restoring", 0.25, std::nullopt},
    {"Restoring", 0.4, RestoreStage::RestoreOS},
    {"Restoring", 0.55, std::nullopt},
    {"Restoring", 0.7, std::nullopt},
    {"Restoring", 0.85, std::nullopt},
    {"Finishing restore", 0.95, std::nullopt},
    {"Restore complete", 1.0, std::nullopt},
}};

bool matches(const QByteArray& bytes, const std::array<unsigned char, 16>& message) {
    if (bytes.size() != 16)
        return false;
    for (std::size_t i = 0; i < message.size(); ++i)
        if (static_cast<unsigned char>(bytes[static_cast<qsizetype>(i)]) != message[i])
            return false;
    return true;
}

}  // namespace

VendorMessage classifyVendorMessage(const QByteArray& bytes) {
    if (matches(bytes, rebootMessage))
        return VendorMessage::Reboot;
    if (matches(bytes, dfuMessage))
        return VendorMessage::Dfu;
    return VendorMessage::Other;
}

Mac::Mac(MacConfig config, std::uint32_t hubSerial, Scheduler& scheduler, const Timing& timing,
         MacObserver& observer)
    : config_(std::move(config)),
      hubSerial_(hubSerial),
      scheduler_(scheduler),
      timing_(timing),
      observer_(observer),
      state_(config_.state),
      onBus_(config_.state != MacState::Off) {}

Mac::~Mac() {
    scheduler_.cancel(startup_);
    scheduler_.cancel(leaving_);
    scheduler_.cancel(restoreTimer_);
    scheduler_.cancel(reenumeration_);
}

void Mac::setPowered(bool powered) {
    if (powered == powered_)
        return;
    powered_ = powered;
    if (powered) {
        startUp(MacState::Booted, timing_.bootSeconds);
        return;
    }
    abortRestore(1, QStringLiteral("The device lost power during the restore."));
    scheduler_.cancel(startup_);
    startup_ = 0;
    rebootsWhileStarting_ = 0;
    leaveBus(0.0);
}

void Mac::receive(VendorMessage message) {
    // A Mac that is shut down has no controller listening; one that is starting up does.
    if (!powered_ || message == VendorMessage::Other)
        return;
    if (state_ == MacState::Off && !startingUp())
        return;
    if (message == VendorMessage::Dfu) {
        if (config_.ignoresDfu)
            return;
        abortRestore(1, QStringLiteral("The device left the restore for DFU mode."));
        rebootsWhileStarting_ = 0;
        startUp(MacState::Dfu, timing_.dfuSeconds);
        return;
    }
    rebootsWhileStarting_ = startingUp() ? rebootsWhileStarting_ + 1 : 0;
    abortRestore(1, QStringLiteral("The device restarted during the restore."));
    const bool recovery = rebootsWhileStarting_ >= timing_.rebootsForRecovery;
    startUp(recovery ? MacState::Recovery : MacState::Booted, timing_.bootSeconds);
}

// A running Mac keeps its link for a moment after it is told to reset; one already off the bus
// (or about to be) just starts over.
void Mac::startUp(MacState target, double seconds) {
    scheduler_.cancel(startup_);
    const bool stillOnBus = onBus_ && leaving_ == 0;
    const double leaveAfter = stillOnBus ? timing_.leaveBusSeconds : 0.0;
    if (stillOnBus)
        leaveBus(leaveAfter);
    startup_ = scheduler_.after(leaveAfter + seconds, [this, target] { arrive(target); });
}

// Bus changes never happen inside the call that caused them: even a power cut shows on the bus
// only after the hub has answered.
void Mac::leaveBus(double after) {
    scheduler_.cancel(leaving_);
    leaving_ = scheduler_.after(after, [this] {
        leaving_ = 0;
        state_ = MacState::Off;
        onBus_ = false;
        notify();
    });
}

void Mac::arrive(MacState target) {
    startup_ = 0;
    rebootsWhileStarting_ = 0;
    state_ = target;
    onBus_ = true;
    notify();
}

int Mac::startRestore(QString* message) {
    if (state_ == MacState::Restoring) {
        *message = QStringLiteral("A restore is already running on this device.");
        return 5;
    }
    if (!onBus_ || (state_ != MacState::Dfu && state_ != MacState::Recovery)) {
        *message = QStringLiteral("The device is not in DFU or recovery mode.");
        return 7;
    }
    state_ = MacState::Restoring;
    restoreStage_ = RestoreStage::Dfu;
    restoreTimer_ = scheduler_.after(stepSeconds(), [this] { restoreStep(0); });
    notify();
    return 0;
}

int Mac::cancelRestore(QString* message) {
    if (state_ != MacState::Restoring) {
        *message = QStringLiteral("No restore is running on this device.");
        return 7;
    }
    abortRestore(23, QStringLiteral("The restore was cancelled."));
    state_ = MacState::Dfu;
    notify();
    return 0;
}

void Mac::restoreStep(std::size_t index) {
    restoreTimer_ = 0;
    const RestoreStep& step = restoreSteps[index];
    if (config_.restoreFailure && step.progress >= config_.restoreFailure->atProgress) {
        scheduler_.cancel(reenumeration_);
        reenumeration_ = 0;
        state_ = config_.restoreFailure->endState;
        onBus_ = state_ != MacState::Off;
        observer_.restoreFinished(*this, config_.restoreFailure->status,
                                  config_.restoreFailure->message);
        notify();
        return;
    }
    observer_.restoreProgress(*this, QString::fromLatin1(step.step), step.progress);
    if (index + 1 < restoreSteps.size()) {
        restoreTimer_ = scheduler_.after(stepSeconds(), [this, index] { restoreStep(index + 1); });
        if (step.reenumerateAs)
            reenumerate(*step.reenumerateAs);
        return;
    }
    observer_.restoreFinished(*this, 0, QStringLiteral("Restore succeeded."));
    scheduler_.cancel(reenumeration_);
    reenumeration_ = 0;
    startUp(MacState::Booted, timing_.bootSeconds);
}

void Mac::reenumerate(RestoreStage stage) {
    onBus_ = false;
    notify();
    reenumeration_ = scheduler_.after(timing_.reenumerateSeconds, [this, stage] {
        reenumeration_ = 0;
        restoreStage_ = stage;
        onBus_ = true;
        notify();
    });
}

double Mac::stepSeconds() const { return timing_.restoreSeconds / restoreSteps.size(); }

void Mac::abortRestore(int status, const QString& message) {
    if (state_ != MacState::Restoring)
        return;
    scheduler_.cancel(restoreTimer_);
    restoreTimer_ = 0;
    // A restore that ends between two stages ends with the Mac back on the bus.
    scheduler_.cancel(reenumeration_);
    reenumeration_ = 0;
    onBus_ = true;
    observer_.restoreFinished(*this, status, message);
}

}  // namespace sim
