#include "unattended/UnattendedBench.h"

#include "core/Log.h"

#include <utility>

namespace unattended {

UnattendedBench::UnattendedBench(Collaborators collaborators, Options options, QObject* parent)
    : QObject(parent),
      c_(std::move(collaborators)),
      options_(std::move(options)),
      bus_(*c_.registry),
      sequencer_(*c_.driver, options_.ports.isEmpty()),
      admission_({c_.restorer, c_.now, c_.tickMilliseconds,
                  [this](const QString& port) { return cycles_.locationOf(port); }},
                 {options_.maxRestores, options_.secondsBetweenStarts}),
      cycles_({options_.restore, options_.recoveryAfter}, c_.now, sequencer_, admission_) {
    qRegisterMetaType<unattended::BenchPort>();
    qRegisterMetaType<unattended::SequenceOutcome>();
    qRegisterMetaType<unattended::RestoredMac>();
    tick_.setInterval(c_.tickMilliseconds);
    connect(&tick_, &QTimer::timeout, this, &UnattendedBench::tick);
    connect(&bus_, &BusWatch::changed, this, &UnattendedBench::evaluate);
    connect(c_.driver, &PortDriver::ready, this, &UnattendedBench::driverReady);
    connect(c_.driver, &PortDriver::sequenceEnded, this,
            [this](const QString& port, const SequenceOutcome& outcome) {
                cycles_.sequenceEnded(port, outcome);
                checkStopped();
            });
    connect(&admission_, &RestoreAdmission::started, &cycles_, &PortCycles::restoreStarted);
    connect(&admission_, &RestoreAdmission::refused, &cycles_, &PortCycles::restoreRefused);
    connect(&admission_, &RestoreAdmission::finished, this,
            [this](const QString& port, bool ok, bool cancelled, const QString& message) {
                cycles_.restoreFinished(port, ok, cancelled, message);
                checkStopped();
            });
    if (c_.restorer)
        connect(c_.restorer, &Restorer::progress, &cycles_, &PortCycles::restoreProgress);
    connect(&cycles_, &PortCycles::portChanged, this, &UnattendedBench::portChanged);
    connect(&cycles_, &PortCycles::cycleEnded, this, &UnattendedBench::cycleEnded);
    connect(&cycles_, &PortCycles::dfuAttemptEnded, this, &UnattendedBench::dfuAttemptEnded);
    connect(&cycles_, &PortCycles::restoreEnded, this, &UnattendedBench::restoreEnded);
}

void UnattendedBench::start() {
    startedAt_ = c_.now();
    if (!c_.driver->ports().isEmpty())
        driverReady();
}

void UnattendedBench::driverReady() {
    if (bus_.isWatching()) {
        adoptNewPorts();
        return;
    }
    const QStringList usable = c_.driver->ports();
    for (const QString& name : options_.ports.isEmpty() ? usable : options_.ports) {
        if (!usable.contains(name)) {
            emit startFailed(
                QStringLiteral("no usable port %1 (the station has: %2)")
                    .arg(name, usable.isEmpty() ? QStringLiteral("no hubs") : usable.join(u' ')));
            return;
        }
        cycles_.add(name);
    }
    bus_.start();
    sequencer_.start(bus_.devices());
    tick_.start();
    const QStringList names = cycles_.names();
    ZMRLogLevel1(QStringLiteral("Unattended bench started on %1 ports: %2")
                     .arg(names.size())
                     .arg(names.join(u' ')));
    emit started();
    evaluate();
}

// The refresh found the hubs again: a bench of every usable port takes the new hub's ports, and
// the sequences held for it go on.
void UnattendedBench::adoptNewPorts() {
    if (options_.ports.isEmpty()) {
        for (const QString& name : c_.driver->ports()) {
            if (cycles_.contains(name))
                continue;
            ZMRLogLevel1(QStringLiteral("Unattended bench: port %1 joins").arg(name));
            cycles_.join(name);
        }
    }
    sequencer_.refreshed();
    evaluate();
}

void UnattendedBench::evaluate() {
    sequencer_.noticeBus(bus_.devices());
    cycles_.observe(sightPorts(bus_.devices(), cycles_.names()));
}

void UnattendedBench::tick() {
    cycles_.tick();
    admission_.tryStarts();
    checkStopped();
}

void UnattendedBench::stop() {
    if (stopping_)
        return;
    stopping_ = true;
    cycles_.stop();
    const QStringList neverBegun = sequencer_.stop();
    admission_.stop();
    cycles_.failUnstarted(neverBegun);
    checkStopped();
}

void UnattendedBench::checkStopped() {
    if (!stopping_ || stoppedSent_ || !admission_.isIdle() || sequencer_.anyUnderWay())
        return;
    // What waits for DFU mode cannot get there now that no sequence runs.
    cycles_.endWaits();
    stoppedSent_ = true;
    tick_.stop();
    emit stopped();
}

QList<BenchPort> UnattendedBench::ports() const {
    return cycles_.ports();
}

BenchSummary UnattendedBench::summary() const {
    BenchSummary summary = cycles_.summary();
    summary.elapsedSeconds = c_.now() - startedAt_;
    return summary;
}

int UnattendedBench::hubsConnected() const {
    return cycles_.hubsConnected();
}

}  // namespace unattended
