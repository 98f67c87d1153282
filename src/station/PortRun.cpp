#include "station/PortRun.h"

#include "core/Clock.h"
#include "core/Log.h"

#include <mutex>

namespace station {
namespace {

std::optional<PortProgress::Step> messageOf(std::optional<PortRun::Sequence> sequence) {
    if (!sequence)
        return std::nullopt;
    return *sequence == PortRun::Sequence::Dfu ? PortProgress::Step::DfuMessage
                                               : PortProgress::Step::Reboot;
}

QStringList namesOf(const AcronamePorts& ports) {
    QStringList names;
    for (const auto& port : ports) names << port->name();
    return names;
}

std::shared_ptr<AcronameHub> hubNamed(const std::vector<std::shared_ptr<AcronameHub>>& hubs,
                                      const QString& name) {
    for (const auto& hub : hubs)
        if (hub->modelName() == name)
            return hub;
    return nullptr;
}

// Each port ("HUB:PORT") that reads disabled is enabled once more; answers those that stay so.
QStringList portsLeftDisabled(const QStringList& names,
                              const std::vector<std::shared_ptr<AcronameHub>>& hubs) {
    QStringList left;
    for (const QString& name : names) {
        const auto hub = hubNamed(hubs, name.section(':', 0, 0));
        const std::int64_t id = name.section(':', 1).toLongLong();
        // A hub that no longer answers cannot tell; its ports' failures say what was asked.
        if (!hub || hub->portEnabled(id).value_or(true))
            continue;
        if (hub->enablePort(id)) {
            ZMRLogLevel0(QStringLiteral("Port %1 was left disabled; enabled it again").arg(name));
            continue;
        }
        ZMRLogLevel0(QStringLiteral("Port %1 is left disabled: it could not be enabled (result %2)")
                         .arg(name)
                         .arg(hub->lastPortResult()));
        left << name;
    }
    return left;
}

}  // namespace

struct PortRun::Recorded {
    Recorded(QStringList ports, std::optional<PortProgress::Step> message)
        : verdict(std::move(ports), message) {}
    std::mutex mutex;
    PortVerdict verdict;
};

QStringList PortRun::enableDisabledPorts(const AcronamePorts& ports, core::Clock& clock) {
    QStringList disabled;
    for (const auto& port : ports) {
        if (port->isEnabled() || !port->hub())
            continue;
        disabled << port->name();
        ZMRLogLevel1(
            QStringLiteral("Port %1 reads disabled; enabling it to reach the Mac behind it")
                .arg(port->name()));
        if (!port->hub()->enablePort(port->portID()))
            ZMRLogLevel0(
                QStringLiteral("Port %1 reads disabled and could not be enabled (result %2)")
                    .arg(port->name())
                    .arg(port->hub()->lastPortResult()));
    }
    // A Mac that gets power again needs a moment before its cable shows on the port.
    if (!disabled.isEmpty())
        clock.sleepSeconds(1);
    return disabled;
}

PortRun::PortRun(Sequence sequence, AcronamePorts ports, QStringList wereDisabled)
    : sequence_(sequence),
      ports_(std::move(ports)),
      wereDisabled_(std::move(wereDisabled)),
      recorded_(std::make_shared<Recorded>(namesOf(ports_), messageOf(sequence_))) {}

PortRun::PortRun(std::int64_t powerMode, AcronamePorts ports, QStringList wereDisabled)
    : powerMode_(powerMode),
      ports_(std::move(ports)),
      wereDisabled_(std::move(wereDisabled)),
      recorded_(std::make_shared<Recorded>(namesOf(ports_), std::nullopt)) {}

void PortRun::start(ZMRAcronameManager& manager, Listeners listeners) {
    auto observer = [recorded = recorded_,
                     also = std::move(listeners.observer)](const PortProgress& event) {
        {
            std::lock_guard lock(recorded->mutex);
            recorded->verdict.record(event);
        }
        if (also)
            also(event);
    };
    auto completion = [recorded = recorded_, also = std::move(listeners.completion)](bool value) {
        {
            std::lock_guard lock(recorded->mutex);
            recorded->verdict.recordCompletion(value);
        }
        if (also)
            also(value);
    };
    if (!sequence_) {
        manager.setPowerMode(powerMode_, ports_, completion, observer);
        return;
    }
    ZMRAcronameManager::Update update =
        listeners.update ? std::move(listeners.update) : [](const QString&) {};
    switch (*sequence_) {
        case Sequence::Dfu:
            manager.dfuModeForAcronamePorts(ports_, update, completion, observer);
            break;
        case Sequence::Restart:
            manager.restartForAcronamePorts(ports_, update, completion, observer);
            break;
        case Sequence::Recovery:
            manager.recoveryForAcronamePorts(ports_, update, completion, observer);
            break;
    }
}

PortVerdict PortRun::finish(const std::vector<std::shared_ptr<AcronameHub>>& hubs,
                            bool interrupted) {
    const QStringList leftDisabled = portsLeftDisabled(namesOf(ports_), hubs);
    std::lock_guard lock(recorded_->mutex);
    PortVerdict verdict = recorded_->verdict;
    if (interrupted)
        verdict.recordInterrupted();
    for (const QString& port : wereDisabled_) verdict.recordWasDisabled(port);
    for (const QString& port : leftDisabled) verdict.recordLeftDisabled(port);
    return verdict;
}

}  // namespace station
