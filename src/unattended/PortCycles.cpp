#include "unattended/PortCycles.h"

#include "core/Log.h"
#include "localport/AutoDFU.h"

#include <QSet>

namespace unattended {
namespace {

const QString restoreCancelled = QStringLiteral("Restore Cancelled");
const QString stoppedReason = QStringLiteral("stopped");

bool isAnotherMac(const BenchPort& shown, const PortSighting& sighting) {
    if (sighting.ecid != 0 && shown.ecid != 0)
        return sighting.ecid != shown.ecid;
    if (!sighting.serialNumber.isEmpty() && !shown.serialNumber.isEmpty())
        return sighting.serialNumber != shown.serialNumber;
    return false;
}

}  // namespace

PortCycles::PortCycles(Rules rules, std::function<double()> now, PortSequencer& sequencer,
                       RestoreAdmission& admission, QObject* parent)
    : QObject(parent),
      rules_(rules),
      now_(std::move(now)),
      sequencer_(sequencer),
      admission_(admission) {}

void PortCycles::add(const QString& name) {
    addPort(name);
}

void PortCycles::join(const QString& name) {
    changed(addPort(name));
}

PortCycles::Port& PortCycles::addPort(const QString& name) {
    Port& port = ports_[name];
    port.shown.name = name;
    port.shown.since = now_();
    return port;
}

void PortCycles::observe(const QHash<QString, PortSighting>& sightings) {
    for (auto it = ports_.begin(); it != ports_.end(); ++it) {
        it->sighting = sightings.value(it.key());
        observe(*it);
    }
}

void PortCycles::observe(Port& port) {
    const PortSighting& seen = port.sighting;
    switch (port.shown.phase) {
        case PortPhase::empty:
            if (seen.present() && !stopping_)
                beginCycle(port);
            return;
        case PortPhase::waitingForDFU:
            if (seen.mode == station::MacMode::Dfu)
                reachedDfu(port);
            return;
        case PortPhase::queued:
            if (seen.present())
                port.absentTicks = 0;
            return;
        case PortPhase::done:
        case PortPhase::failed:
        case PortPhase::needsAttention:
            observeEnded(port);
            return;
        case PortPhase::dfuSequence:
        case PortPhase::restoring:
        case PortPhase::recovery:
            // The Mac leaves and rejoins the bus as it resets and restores.
            return;
    }
}

// The port shows how its cycle ended until that Mac is pulled out, or another one arrives.
void PortCycles::observeEnded(Port& port) {
    const PortSighting& seen = port.sighting;
    if (seen.present() && isAnotherMac(port.shown, seen) && !stopping_) {
        beginCycle(port);
    } else if (seen.present() && (!port.settledMode || seen.mode == *port.settledMode)) {
        port.seenSinceEnd = true;
    } else if (seen.mode == station::MacMode::Absent && port.seenSinceEnd) {
        port.shown = BenchPort::named(port.shown.name);
        setPhase(port, PortPhase::empty);
    }
}

void PortCycles::beginCycle(Port& port) {
    const QString name = port.shown.name;
    port.shown = BenchPort::named(name);
    port.shown.ecid = port.sighting.ecid;
    port.shown.serialNumber = port.sighting.serialNumber;
    port.arrivedAt = now_();
    port.seenSinceEnd = false;
    ZMRLogLevel1(QStringLiteral("Port %1: a Mac arrived (%2)")
                     .arg(name, station::macModeText(port.sighting.mode)));
    if (port.sighting.mode == station::MacMode::Dfu)
        reachedDfu(port);
    else
        runDfu(port);
}

void PortCycles::runDfu(Port& port) {
    ++port.shown.dfuAttempts;
    port.waitTicks = 0;
    setPhase(port, PortPhase::dfuSequence);
    sequencer_.run(port.shown.name, false);
}

void PortCycles::reachedDfu(Port& port) {
    if (port.sighting.ecid != 0)
        port.shown.ecid = port.sighting.ecid;
    if (port.shown.dfuAttempts > 0)
        emit dfuAttemptEnded(port.shown, true, now_() - port.arrivedAt);
    if (!rules_.restore) {
        endCycle(port, PortPhase::done);
        return;
    }
    port.absentTicks = 0;
    setPhase(port, PortPhase::queued);
    admission_.queue(port.shown.name);
}

// The host port's rule: a few ticks to show DFU mode, then the request again.
void PortCycles::waitedForDfu(Port& port) {
    if (++port.waitTicks <= AutoDFU::waitingForDFUTicks)
        return;
    emit dfuAttemptEnded(port.shown, false, now_() - port.arrivedAt);
    if (stopping_) {
        endCycle(port, PortPhase::failed, stoppedReason);
    } else if (port.shown.dfuAttempts < dfuAttempts) {
        ZMRLogLevel1(QStringLiteral("Port %1: the Mac did not show DFU mode; DFU again")
                         .arg(port.shown.name));
        runDfu(port);
    } else {
        endCycle(port, PortPhase::needsAttention,
                 QStringLiteral("not in DFU mode after %1 DFU sequences").arg(dfuAttempts));
    }
}

void PortCycles::sequenceEnded(const QString& name, const SequenceOutcome& outcome) {
    Port* port = find(name);
    if (!port)
        return;
    sequencer_.ended(name);
    if (stopping_ && !outcome.ok) {
        endCycle(*port, PortPhase::failed, stoppedReason);
    } else if (port->shown.phase == PortPhase::recovery) {
        if (outcome.ok)
            endCycle(*port, PortPhase::done);
        else
            endCycle(*port, PortPhase::failed,
                     QStringLiteral("restored; recovery: ") + outcome.reason);
    } else if (outcome.nothingConnected) {
        // The cable went before the sequence reached the port.
        port->shown = BenchPort::named(name);
        setPhase(*port, PortPhase::empty);
    } else if (!outcome.ok) {
        emit dfuAttemptEnded(port->shown, false, now_() - port->arrivedAt);
        endCycle(*port, PortPhase::failed, QStringLiteral("DFU sequence: ") + outcome.reason);
    } else {
        setPhase(*port, PortPhase::waitingForDFU);
        observe(*port);
    }
}

void PortCycles::restoreStarted(const QString& name, const RestoredMac& mac) {
    Port* port = find(name);
    if (!port)
        return;
    port->restoreStartedAt = now_();
    port->shown.model = mac.model;
    port->shown.ecid = mac.ecid;
    if (!mac.serialNumber.isEmpty())
        port->shown.serialNumber = mac.serialNumber;
    port->shown.progress = 0;
    setPhase(*port, PortPhase::restoring);
}

void PortCycles::restoreRefused(const QString& name, const QString& why) {
    if (Port* port = find(name))
        endCycle(*port, PortPhase::failed, QStringLiteral("restore refused: ") + why);
}

void PortCycles::restoreProgress(const QString& name, const QString& step, double progress) {
    Port* port = find(name);
    if (!port || port->shown.phase != PortPhase::restoring)
        return;
    port->shown.step = step;
    if (progress >= 0)
        port->shown.progress = progress;
    changed(*port);
}

void PortCycles::restoreFinished(const QString& name, bool ok, bool cancelled,
                                 const QString& message) {
    Port* port = find(name);
    if (!port)
        return;
    port->shown.restored = ok;
    const QString outcome =
        ok ? QStringLiteral("restored")
           : (cancelled ? QStringLiteral("cancelled") : QStringLiteral("failed"));
    emit restoreEnded(port->shown, outcome, now_() - port->restoreStartedAt);
    if (ok && rules_.recoveryAfter && !stopping_) {
        setPhase(*port, PortPhase::recovery);
        sequencer_.run(name, true);
    } else if (ok) {
        endCycle(*port, PortPhase::done);
    } else {
        endCycle(*port, PortPhase::failed, cancelled ? restoreCancelled : message);
    }
}

void PortCycles::tick() {
    for (Port& port : ports_) {
        if (port.shown.phase == PortPhase::waitingForDFU) {
            waitedForDfu(port);
        } else if (port.shown.phase == PortPhase::queued && !port.sighting.present() &&
                   ++port.absentTicks >= pulledAfterTicks) {
            endCycle(port, PortPhase::failed,
                     QStringLiteral("pulled out before its restore started"));
        }
    }
}

void PortCycles::stop() {
    stopping_ = true;
}

void PortCycles::failUnstarted(const QStringList& neverBegun) {
    for (Port& port : ports_)
        if (port.shown.phase == PortPhase::queued && !admission_.isLookingUp(port.shown.name))
            endCycle(port, PortPhase::failed, stoppedReason);
    for (const QString& name : neverBegun)
        if (Port* port = find(name))
            endCycle(*port, PortPhase::failed, stoppedReason);
}

void PortCycles::endWaits() {
    for (Port& port : ports_)
        if (port.shown.phase == PortPhase::waitingForDFU || port.shown.phase == PortPhase::queued)
            endCycle(port, PortPhase::failed, stoppedReason);
}

void PortCycles::endCycle(Port& port, PortPhase phase, const QString& reason) {
    BenchPort& shown = port.shown;
    admission_.withdraw(shown.name);
    shown.reason = reason;
    shown.step.clear();
    counts_.countCycleEnd(phase, shown.restored,
                          reason == stoppedReason || reason == restoreCancelled);
    port.seenSinceEnd = false;
    port.settledMode.reset();
    if (phase == PortPhase::done)
        port.settledMode = !shown.restored                      ? station::MacMode::Dfu
                           : shown.phase == PortPhase::recovery ? station::MacMode::Recovery
                                                                : station::MacMode::Booted;
    ZMRLogLevel1(QStringLiteral("Port %1: %2%3")
                     .arg(shown.name, portPhaseText(phase),
                          reason.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(reason)));
    setPhase(port, phase);
    emit cycleEnded(shown);
    observe(port);
}

void PortCycles::setPhase(Port& port, PortPhase phase) {
    port.shown.phase = phase;
    port.shown.since = now_();
    if (phase != PortPhase::restoring)
        port.shown.progress = -1;
    changed(port);
}

void PortCycles::changed(Port& port) {
    emit portChanged(port.shown);
}

PortCycles::Port* PortCycles::find(const QString& name) {
    const auto it = ports_.find(name);
    return it == ports_.end() ? nullptr : &*it;
}

QList<BenchPort> PortCycles::ports() const {
    QList<BenchPort> shown;
    for (const Port& port : ports_) shown << port.shown;
    return shown;
}

BenchSummary PortCycles::summary() const {
    BenchSummary summary = counts_;
    for (const Port& port : ports_)
        if (!isCycleEnd(port.shown.phase) && port.shown.phase != PortPhase::empty)
            ++summary.underWay;
    return summary;
}

int PortCycles::hubsConnected() const {
    QSet<QString> hubs;
    for (const Port& port : ports_)
        if (port.sighting.mode != station::MacMode::HubAbsent)
            hubs.insert(port.shown.name.section(u':', 0, 0));
    return int(hubs.size());
}

std::uint64_t PortCycles::locationOf(const QString& name) const {
    const auto it = ports_.find(name);
    return it == ports_.end() ? 0 : it->sighting.location.value_or(0);
}

}  // namespace unattended
