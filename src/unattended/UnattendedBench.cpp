#include "unattended/UnattendedBench.h"

#include "core/Log.h"
#include "usb/AutoDFU.h"
#include "usb/HubPortNames.h"

#include <QSet>

#include <algorithm>
#include <cmath>
#include <utility>

namespace unattended {
namespace {

const QString restoreCancelled = QStringLiteral("Restore Cancelled");
const QString stoppedReason = QStringLiteral("stopped");

// Removals carry the arrival's properties; the session number tells two attachments of the same
// device apart where the registry gives one.
bool sameAttachment(const usb::PropertyMap& a, const usb::PropertyMap& b) {
    const QVariant session = a.value(usb::keys::sessionID);
    if (session.isValid() && b.contains(usb::keys::sessionID))
        return session == b.value(usb::keys::sessionID);
    return a == b;
}

bool isAnotherMac(const BenchPort& shown, const PortSighting& sighting) {
    if (sighting.ecid != 0 && shown.ecid != 0)
        return sighting.ecid != shown.ecid;
    if (!sighting.serialNumber.isEmpty() && !shown.serialNumber.isEmpty())
        return sighting.serialNumber != shown.serialNumber;
    return false;
}

}  // namespace

double BenchSummary::macsPerHour() const {
    return elapsedSeconds > 0 ? restored * 3600.0 / elapsedSeconds : 0;
}

UnattendedBench::UnattendedBench(Collaborators collaborators, Options options, QObject* parent)
    : QObject(parent), c_(std::move(collaborators)), options_(std::move(options)) {
    qRegisterMetaType<unattended::BenchPort>();
    qRegisterMetaType<unattended::SequenceOutcome>();
    qRegisterMetaType<unattended::RestoredMac>();
    tick_.setInterval(c_.tickMilliseconds);
    connect(&tick_, &QTimer::timeout, this, &UnattendedBench::tick);
    // A burst of arrivals and removals is looked at once, after it.
    evaluation_.setSingleShot(true);
    evaluation_.setInterval(0);
    connect(&evaluation_, &QTimer::timeout, this, &UnattendedBench::evaluate);
    startGate_.setSingleShot(true);
    connect(&startGate_, &QTimer::timeout, this, &UnattendedBench::tryStarts);
    connect(c_.driver, &PortDriver::ready, this, &UnattendedBench::driverReady);
    connect(c_.driver, &PortDriver::sequenceEnded, this, &UnattendedBench::sequenceEnded);
    if (c_.restorer) {
        connect(c_.restorer, &Restorer::started, this, &UnattendedBench::restoreStarted);
        connect(c_.restorer, &Restorer::notListed, this, &UnattendedBench::restoreNotListed);
        connect(c_.restorer, &Restorer::refused, this, &UnattendedBench::restoreRefused);
        connect(c_.restorer, &Restorer::progress, this, &UnattendedBench::restoreProgress);
        connect(c_.restorer, &Restorer::finished, this, &UnattendedBench::restoreFinished);
    }
}

UnattendedBench::~UnattendedBench() {
    if (watching_)
        c_.registry->stopWatching();
}

void UnattendedBench::start() {
    startedAt_ = c_.now();
    if (!c_.driver->ports().isEmpty())
        driverReady();
}

void UnattendedBench::driverReady() {
    if (watching_) {
        adoptNewPorts();
        return;
    }
    const QStringList usable = c_.driver->ports();
    QStringList chosen = options_.ports.isEmpty() ? usable : options_.ports;
    for (const QString& name : chosen) {
        if (!usable.contains(name)) {
            emit startFailed(QStringLiteral("no usable port %1 (the station has: %2)")
                                 .arg(name, usable.isEmpty() ? QStringLiteral("no hubs")
                                                             : usable.join(u' ')));
            return;
        }
        ports_[name].shown.name = name;
        ports_[name].shown.since = c_.now();
    }
    watching_ = true;
    connect(c_.registry, &usb::UsbRegistry::deviceArrived, this,
            [this](const usb::PropertyMap& device) {
                devices_.append(device);
                devicesChanged();
            });
    connect(c_.registry, &usb::UsbRegistry::deviceRemoved, this,
            [this](const usb::PropertyMap& device) {
                const auto gone = std::find_if(
                    devices_.begin(), devices_.end(),
                    [&](const usb::PropertyMap& known) { return sameAttachment(known, device); });
                if (gone != devices_.end())
                    devices_.erase(gone);
                devicesChanged();
            });
    devices_ = c_.registry->startWatching();
    const QStringList onUsb = usb::HubPortNames(devices_).names();
    portsOnUsb_ = QSet<QString>(onUsb.begin(), onUsb.end());
    tick_.start();
    ZMRLogLevel1(QStringLiteral("Unattended bench started on %1 ports: %2")
                     .arg(ports_.size())
                     .arg(QStringList(ports_.keys()).join(u' ')));
    emit started();
    evaluate();
}

void UnattendedBench::devicesChanged() {
    if (!evaluation_.isActive())
        evaluation_.start();
}

// The refresh found the hubs again: a bench of every usable port takes the new hub's ports, and
// the sequences held for it go on.
void UnattendedBench::adoptNewPorts() {
    refreshing_ = false;
    if (options_.ports.isEmpty()) {
        for (const QString& name : c_.driver->ports()) {
            if (ports_.contains(name))
                continue;
            Port& port = ports_[name];
            port.shown.name = name;
            port.shown.since = c_.now();
            ZMRLogLevel1(QStringLiteral("Unattended bench: port %1 joins").arg(name));
            changed(port);
        }
    }
    const QHash<QString, bool> held = std::exchange(heldSequences_, {});
    for (auto it = held.begin(); it != held.end(); ++it)
        it.value() ? c_.driver->recovery(it.key()) : c_.driver->dfu(it.key());
    evaluate();
}

void UnattendedBench::noticeNewHubs() {
    const QStringList onUsb = usb::HubPortNames(devices_).names();
    QSet<QString> now(onUsb.begin(), onUsb.end());
    if (options_.ports.isEmpty() && !stopping_ && !now.isEmpty() && !now.subtract(portsOnUsb_).isEmpty()) {
        ZMRLogLevel1(QStringLiteral("Unattended bench: a hub was plugged in; looking for the hubs "
                                    "again once no sequence runs"));
        hubRefreshWanted_ = true;
    }
    portsOnUsb_ = QSet<QString>(onUsb.begin(), onUsb.end());
    refreshWhenIdle();
}

// A refresh reconnects every hub, which would cut the sequences under way.
void UnattendedBench::refreshWhenIdle() {
    if (!hubRefreshWanted_ || refreshing_ || sequencesUnderWay())
        return;
    hubRefreshWanted_ = false;
    refreshing_ = true;
    c_.driver->refresh();
}

bool UnattendedBench::sequencesUnderWay() const {
    for (auto it = ports_.begin(); it != ports_.end(); ++it)
        if (it->sequenceRunning && !heldSequences_.contains(it.key()))
            return true;
    return false;
}

void UnattendedBench::runSequence(Port& port, bool recovery) {
    port.sequenceRunning = true;
    if (hubRefreshWanted_ || refreshing_) {
        heldSequences_.insert(port.shown.name, recovery);
        refreshWhenIdle();
        return;
    }
    recovery ? c_.driver->recovery(port.shown.name) : c_.driver->dfu(port.shown.name);
}

void UnattendedBench::evaluate() {
    noticeNewHubs();
    const QHash<QString, PortSighting> sightings = sightPorts(devices_, ports_.keys());
    for (auto it = ports_.begin(); it != ports_.end(); ++it) {
        it->sighting = sightings.value(it.key());
        observe(*it);
    }
}

void UnattendedBench::observe(Port& port) {
    const PortSighting& seen = port.sighting;
    BenchPort& shown = port.shown;
    switch (shown.phase) {
        case PortPhase::empty:
            if (seen.present() && !stopping_)
                beginCycle(port);
            return;
        case PortPhase::waitingForDFU:
            if (seen.mode == cli::MacMode::Dfu)
                reachedDfu(port);
            return;
        case PortPhase::queued:
            if (seen.present())
                port.absentTicks = 0;
            return;
        case PortPhase::done:
        case PortPhase::failed:
        case PortPhase::needsAttention:
            if (seen.present() && isAnotherMac(shown, seen) && !stopping_) {
                beginCycle(port);
            } else if (seen.present() && (!port.settledMode || seen.mode == *port.settledMode)) {
                port.seenSinceEnd = true;
            } else if (seen.mode == cli::MacMode::Absent && port.seenSinceEnd) {
                // Pulled out: the port is free for the next Mac.
                shown = BenchPort::named(shown.name);
                setPhase(port, PortPhase::empty);
            }
            return;
        case PortPhase::dfuSequence:
        case PortPhase::restoring:
        case PortPhase::recovery:
            // The Mac leaves and rejoins the bus as it resets and restores.
            return;
    }
}

void UnattendedBench::beginCycle(Port& port) {
    const QString name = port.shown.name;
    port.shown = BenchPort::named(name);
    port.shown.ecid = port.sighting.ecid;
    port.shown.serialNumber = port.sighting.serialNumber;
    port.arrivedAt = c_.now();
    port.seenSinceEnd = false;
    ZMRLogLevel1(QStringLiteral("Port %1: a Mac arrived (%2)")
                     .arg(name, cli::macModeText(port.sighting.mode)));
    if (port.sighting.mode == cli::MacMode::Dfu)
        reachedDfu(port);
    else
        runDfu(port);
}

void UnattendedBench::runDfu(Port& port) {
    ++port.shown.dfuAttempts;
    port.waitTicks = 0;
    setPhase(port, PortPhase::dfuSequence);
    runSequence(port, false);
}

void UnattendedBench::reachedDfu(Port& port) {
    if (port.sighting.ecid != 0)
        port.shown.ecid = port.sighting.ecid;
    if (port.shown.dfuAttempts > 0)
        emit dfuAttemptEnded(port.shown, true, c_.now() - port.arrivedAt);
    if (!options_.restore) {
        endCycle(port, PortPhase::done);
        return;
    }
    port.queuedAt = c_.now();
    port.absentTicks = 0;
    port.lastListing = -std::numeric_limits<double>::infinity();
    setPhase(port, PortPhase::queued);
    tryStarts();
}

// The host port's rule: a few ticks to show DFU mode, then the request again.
void UnattendedBench::waitedForDfu(Port& port) {
    if (++port.waitTicks <= AutoDFU::waitingForDFUTicks)
        return;
    emit dfuAttemptEnded(port.shown, false, c_.now() - port.arrivedAt);
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

void UnattendedBench::sequenceEnded(const QString& name, const SequenceOutcome& outcome) {
    Port* port = find(name);
    if (!port)
        return;
    port->sequenceRunning = false;
    const bool recovery = port->shown.phase == PortPhase::recovery;
    if (stopping_ && !outcome.ok) {
        endCycle(*port, PortPhase::failed, stoppedReason);
    } else if (recovery) {
        if (outcome.ok)
            endCycle(*port, PortPhase::done);
        else
            endCycle(*port, PortPhase::failed, QStringLiteral("restored; recovery: ") + outcome.reason);
    } else if (outcome.nothingConnected) {
        // The cable went before the sequence reached the port.
        port->shown = BenchPort::named(name);
        setPhase(*port, PortPhase::empty);
    } else if (!outcome.ok) {
        emit dfuAttemptEnded(port->shown, false, c_.now() - port->arrivedAt);
        endCycle(*port, PortPhase::failed, QStringLiteral("DFU sequence: ") + outcome.reason);
    } else {
        setPhase(*port, PortPhase::waitingForDFU);
        observe(*port);
    }
    refreshWhenIdle();
    checkStopped();
}

// One start at a time, the pause between processes after each, and no more restores at once
// than allowed; the Mac waiting longest goes first.
void UnattendedBench::tryStarts() {
    if (stopping_ || !pendingStart_.isEmpty() || restoring_ >= options_.maxRestores)
        return;
    const double now = c_.now();
    const double wait = lastStart_ + options_.secondsBetweenStarts - now;
    if (wait > 0) {
        startGate_.start(static_cast<int>(std::ceil(wait * c_.tickMilliseconds)));
        return;
    }
    Port* next = nullptr;
    for (Port& port : ports_)
        if (port.shown.phase == PortPhase::queued &&
            now - port.lastListing >= listingRetrySeconds &&
            (!next || port.queuedAt < next->queuedAt))
            next = &port;
    if (!next)
        return;
    next->lastListing = now;
    pendingStart_ = next->shown.name;
    c_.restorer->restore(next->shown.name, next->sighting.location.value_or(0));
}

void UnattendedBench::restoreStarted(const QString& name, const RestoredMac& mac) {
    pendingStart_.clear();
    Port* port = find(name);
    if (!port)
        return;
    lastStart_ = c_.now();
    ++restoring_;
    port->restoreStartedAt = lastStart_;
    port->shown.model = mac.model;
    port->shown.ecid = mac.ecid;
    if (!mac.serialNumber.isEmpty())
        port->shown.serialNumber = mac.serialNumber;
    port->shown.progress = 0;
    setPhase(*port, PortPhase::restoring);
    if (stopping_)  // it was being looked up when the stop came
        c_.restorer->cancelAll();
    tryStarts();
}

void UnattendedBench::restoreNotListed(const QString& name) {
    if (pendingStart_ == name)
        pendingStart_.clear();
    tryStarts();
}

void UnattendedBench::restoreRefused(const QString& name, const QString& why) {
    if (pendingStart_ == name)
        pendingStart_.clear();
    if (Port* port = find(name))
        endCycle(*port, PortPhase::failed, QStringLiteral("restore refused: ") + why);
    tryStarts();
}

void UnattendedBench::restoreProgress(const QString& name, const QString& step, double progress) {
    Port* port = find(name);
    if (!port || port->shown.phase != PortPhase::restoring)
        return;
    port->shown.step = step;
    if (progress >= 0)
        port->shown.progress = progress;
    changed(*port);
}

void UnattendedBench::restoreFinished(const QString& name, bool ok, bool cancelled,
                                      const QString& message) {
    Port* port = find(name);
    if (!port || port->shown.phase != PortPhase::restoring)
        return;
    --restoring_;
    port->shown.restored = ok;
    const QString outcome = ok ? QStringLiteral("restored")
                               : (cancelled ? QStringLiteral("cancelled") : QStringLiteral("failed"));
    emit restoreEnded(port->shown, outcome, c_.now() - port->restoreStartedAt);
    if (ok && options_.recoveryAfter && !stopping_) {
        setPhase(*port, PortPhase::recovery);
        runSequence(*port, true);
    } else if (ok) {
        endCycle(*port, PortPhase::done);
    } else {
        endCycle(*port, PortPhase::failed, cancelled ? restoreCancelled : message);
    }
    tryStarts();
    checkStopped();
}

void UnattendedBench::endCycle(Port& port, PortPhase phase, const QString& reason) {
    BenchPort& shown = port.shown;
    shown.reason = reason;
    shown.step.clear();
    if (shown.restored)
        ++counts_.restored;
    if (reason == stoppedReason || reason == restoreCancelled)
        ++counts_.cancelled;
    else if (phase == PortPhase::done)
        ++counts_.done;
    else if (phase == PortPhase::failed)
        ++counts_.failed;
    else
        ++counts_.needsAttention;
    port.seenSinceEnd = false;
    port.settledMode.reset();
    if (phase == PortPhase::done)
        port.settledMode = !shown.restored                                   ? cli::MacMode::Dfu
                           : shown.phase == PortPhase::recovery ? cli::MacMode::Recovery
                                                                : cli::MacMode::Booted;
    ZMRLogLevel1(QStringLiteral("Port %1: %2%3")
                     .arg(shown.name, portPhaseText(phase),
                          reason.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(reason)));
    setPhase(port, phase);
    emit cycleEnded(shown);
    observe(port);
}

void UnattendedBench::setPhase(Port& port, PortPhase phase) {
    port.shown.phase = phase;
    port.shown.since = c_.now();
    if (phase != PortPhase::restoring)
        port.shown.progress = -1;
    changed(port);
}

void UnattendedBench::changed(Port& port) { emit portChanged(port.shown); }

void UnattendedBench::tick() {
    for (Port& port : ports_) {
        if (port.shown.phase == PortPhase::waitingForDFU) {
            waitedForDfu(port);
        } else if (port.shown.phase == PortPhase::queued && !port.sighting.present() &&
                   ++port.absentTicks >= pulledAfterTicks) {
            endCycle(port, PortPhase::failed,
                     QStringLiteral("pulled out before its restore started"));
        }
    }
    tryStarts();
    checkStopped();
}

void UnattendedBench::stop() {
    if (stopping_)
        return;
    stopping_ = true;
    startGate_.stop();
    c_.driver->stop();
    if (c_.restorer)
        c_.restorer->cancelAll();
    for (Port& port : ports_)
        if (port.shown.phase == PortPhase::queued && pendingStart_ != port.shown.name)
            endCycle(port, PortPhase::failed, stoppedReason);
    // Sequences held for a refresh never began.
    hubRefreshWanted_ = false;
    for (const QString& name : std::exchange(heldSequences_, {}).keys()) {
        Port& port = ports_[name];
        port.sequenceRunning = false;
        endCycle(port, PortPhase::failed, stoppedReason);
    }
    checkStopped();
}

void UnattendedBench::checkStopped() {
    if (!stopping_ || stoppedSent_ || !pendingStart_.isEmpty() || restoring_ > 0)
        return;
    for (const Port& port : ports_)
        if (port.sequenceRunning)
            return;
    // What waits for DFU mode cannot get there now that no sequence runs.
    for (Port& port : ports_)
        if (port.shown.phase == PortPhase::waitingForDFU || port.shown.phase == PortPhase::queued)
            endCycle(port, PortPhase::failed, stoppedReason);
    stoppedSent_ = true;
    tick_.stop();
    emit stopped();
}

UnattendedBench::Port* UnattendedBench::find(const QString& name) {
    const auto it = ports_.find(name);
    return it == ports_.end() ? nullptr : &*it;
}

QList<BenchPort> UnattendedBench::ports() const {
    QList<BenchPort> shown;
    for (const Port& port : ports_) shown << port.shown;
    return shown;
}

BenchSummary UnattendedBench::summary() const {
    BenchSummary summary = counts_;
    for (const Port& port : ports_)
        if (!isCycleEnd(port.shown.phase) && port.shown.phase != PortPhase::empty)
            ++summary.underWay;
    summary.elapsedSeconds = c_.now() - startedAt_;
    return summary;
}

int UnattendedBench::hubsConnected() const {
    QSet<QString> hubs;
    for (const Port& port : ports_)
        if (port.sighting.mode != cli::MacMode::HubAbsent)
            hubs.insert(port.shown.name.section(u':', 0, 0));
    return int(hubs.size());
}

}  // namespace unattended
