#pragma once

#include "unattended/BenchPort.h"
#include "unattended/BenchSummary.h"
#include "unattended/PortDriver.h"
#include "unattended/PortSequencer.h"
#include "unattended/PortSighting.h"
#include "unattended/RestoreAdmission.h"
#include "unattended/Restorer.h"

#include <QHash>
#include <QList>
#include <QMap>
#include <QObject>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <functional>
#include <optional>

namespace unattended {

// Where each port of the bench is in its cycle, and the rules of the cycle. A Mac that arrives
// booted gets the port's DFU sequence and a few ticks to show DFU mode, three sequences in all;
// one in DFU mode waits for its turn to restore (or is done, without restoring); a restored one
// may be started into recovery. The port then shows how the cycle ended until that Mac is pulled
// out or another Mac arrives there. Main thread.
class PortCycles final : public QObject {
    Q_OBJECT
  public:
    // As the host port's cycle: a Mac gets this many DFU sequences before it needs attention.
    static constexpr int dfuAttempts = 3;
    // A Mac waiting for its restore that is off the bus this long was pulled out.
    static constexpr int pulledAfterTicks = 3;

    struct Rules {
        bool restore = false;
        bool recoveryAfter = false;
    };

    PortCycles(Rules rules, std::function<double()> now, PortSequencer& sequencer,
               RestoreAdmission& admission, QObject* parent = nullptr);

    // A port of the bench, empty until USB shows a Mac on it; join() also tells portChanged().
    void add(const QString& name);
    void join(const QString& name);
    bool contains(const QString& name) const { return ports_.contains(name); }
    QStringList names() const { return ports_.keys(); }

    // What USB shows on each port now.
    void observe(const QHash<QString, PortSighting>& sightings);
    void sequenceEnded(const QString& name, const SequenceOutcome& outcome);
    void restoreStarted(const QString& name, const RestoredMac& mac);
    void restoreRefused(const QString& name, const QString& why);
    void restoreProgress(const QString& name, const QString& step, double progress);
    void restoreFinished(const QString& name, bool ok, bool cancelled, const QString& message);
    // One station second: the waits for DFU mode and for Macs pulled out before their restore.
    void tick();

    // The bench is stopping: no cycle begins from now on, a Mac that missed DFU mode gets no
    // sequence again, and a restored one is not started into recovery.
    void stop();
    // The Macs waiting for their restore (but the one being looked up) and the ports whose
    // sequences never began have failed, as stopped.
    void failUnstarted(const QStringList& neverBegun);
    // Once nothing runs any more: what still waits for DFU mode or a restore has failed.
    void endWaits();

    QList<BenchPort> ports() const;
    // The cycles ended so far and those under way.
    BenchSummary summary() const;
    int hubsConnected() const;
    std::uint64_t locationOf(const QString& name) const;

  signals:
    void portChanged(const unattended::BenchPort& port);
    void cycleEnded(const unattended::BenchPort& port);
    void dfuAttemptEnded(const unattended::BenchPort& port, bool ok, double seconds);
    void restoreEnded(const unattended::BenchPort& port, const QString& outcome, double seconds);

  private:
    struct Port {
        BenchPort shown;
        PortSighting sighting;
        double arrivedAt = 0;
        double restoreStartedAt = 0;
        int waitTicks = 0;
        int absentTicks = 0;
        bool seenSinceEnd = false;
        // The mode the Mac settles in after its cycle; until it shows it, the Mac is still
        // rebooting and its leaving the bus is no pull.
        std::optional<station::MacMode> settledMode;
    };

    Port& addPort(const QString& name);
    void observe(Port& port);
    void observeEnded(Port& port);
    void beginCycle(Port& port);
    void runDfu(Port& port);
    void reachedDfu(Port& port);
    void waitedForDfu(Port& port);
    void endCycle(Port& port, PortPhase phase, const QString& reason = {});
    void setPhase(Port& port, PortPhase phase);
    void changed(Port& port);
    Port* find(const QString& name);

    Rules rules_;
    std::function<double()> now_;
    PortSequencer& sequencer_;
    RestoreAdmission& admission_;
    QMap<QString, Port> ports_;
    bool stopping_ = false;
    BenchSummary counts_;
};

}  // namespace unattended
