#pragma once

#include "unattended/BenchPort.h"
#include "unattended/PortDriver.h"
#include "unattended/PortSighting.h"
#include "unattended/Restorer.h"

#include "usb/UsbRegistry.h"

#include <QHash>
#include <QList>
#include <QMap>
#include <QSet>
#include <QObject>
#include <QStringList>
#include <QTimer>

#include <functional>
#include <limits>
#include <optional>

namespace unattended {

// The day so far: cycles by how they ended, and what is under way.
struct BenchSummary {
    int done = 0;  // cycles that did everything asked (restored ones included)
    int restored = 0;
    int failed = 0;
    int needsAttention = 0;
    int cancelled = 0;  // restores cancelled and sequences stopped by stop()
    int underWay = 0;
    double elapsedSeconds = 0;
    double macsPerHour() const;
};

// Every chosen hub port runs the host port's unattended cycle on its own: a Mac that arrives
// booted gets the port's DFU sequence, then has a few seconds to show DFU mode, and gets the
// sequence again up to three times in all; a Mac that arrives in DFU mode goes straight on.
// With restoring on it is restored through the restore queue, starts spaced by the pause between
// processes and no more at once than allowed, and optionally started into recovery. The port
// then shows done, failed or needs attention until that Mac is pulled out. Ports never wait for
// each other except for their turn to start a restore, and for the moment the hubs are looked for
// again when one is plugged in (every usable port of it then joins the bench). Main thread.
class UnattendedBench : public QObject {
    Q_OBJECT

  public:
    // As the host port's cycle: a Mac gets this many DFU sequences before it needs attention.
    static constexpr int dfuAttempts = 3;
    // Apple Configurator may list a Mac a moment after it shows on USB; ask again after this.
    static constexpr double listingRetrySeconds = 2;
    // A Mac waiting for its restore that is off the bus this long was pulled out.
    static constexpr int pulledAfterTicks = 3;

    struct Options {
        bool restore = false;
        bool recoveryAfter = false;
        QStringList ports;  // empty: every usable port
        int maxRestores = 4;
        double secondsBetweenStarts = 3;
    };
    struct Collaborators {
        usb::UsbRegistry* registry = nullptr;
        PortDriver* driver = nullptr;
        Restorer* restorer = nullptr;  // needed only with restoring on
        std::function<double()> now;   // station seconds
        int tickMilliseconds = 1000;   // one station second
    };

    UnattendedBench(Collaborators collaborators, Options options, QObject* parent = nullptr);
    ~UnattendedBench() override;

    // Waits for the driver's ports, then counts the Macs already there as just plugged in.
    void start();
    // Cancels the restores and stops the sequences under way; stopped() once all have ended.
    void stop();
    bool isStopping() const { return stopping_; }

    QList<BenchPort> ports() const;
    BenchSummary summary() const;
    int hubsConnected() const;

    // One station second: the waits for DFU mode and the retries of listings.
    void tick();

  signals:
    void started();
    void startFailed(const QString& why);
    void portChanged(const unattended::BenchPort& port);
    void cycleEnded(const unattended::BenchPort& port);
    // A DFU sequence ended with its Mac in DFU mode (ok) or not; seconds since the Mac arrived.
    void dfuAttemptEnded(const unattended::BenchPort& port, bool ok, double seconds);
    // "restored", "failed" or "cancelled", and how long the restore ran.
    void restoreEnded(const unattended::BenchPort& port, const QString& outcome, double seconds);
    void stopped();

  private:
    struct Port {
        BenchPort shown;
        PortSighting sighting;
        double arrivedAt = 0;
        double queuedAt = 0;
        double restoreStartedAt = 0;
        double lastListing = -std::numeric_limits<double>::infinity();
        int waitTicks = 0;
        int absentTicks = 0;
        bool sequenceRunning = false;
        bool seenSinceEnd = false;
        // The mode the Mac settles in after its cycle; until it shows it, the Mac is still
        // rebooting and its leaving the bus is no pull.
        std::optional<cli::MacMode> settledMode;
    };

    void driverReady();
    void adoptNewPorts();
    void noticeNewHubs();
    void refreshWhenIdle();
    bool sequencesUnderWay() const;
    void runSequence(Port& port, bool recovery);
    void devicesChanged();
    void evaluate();
    void observe(Port& port);
    void beginCycle(Port& port);
    void runDfu(Port& port);
    void reachedDfu(Port& port);
    void waitedForDfu(Port& port);
    void sequenceEnded(const QString& name, const SequenceOutcome& outcome);
    void tryStarts();
    void restoreStarted(const QString& name, const RestoredMac& mac);
    void restoreNotListed(const QString& name);
    void restoreRefused(const QString& name, const QString& why);
    void restoreProgress(const QString& name, const QString& step, double progress);
    void restoreFinished(const QString& name, bool ok, bool cancelled, const QString& message);
    void endCycle(Port& port, PortPhase phase, const QString& reason = {});
    void setPhase(Port& port, PortPhase phase);
    void changed(Port& port);
    void checkStopped();
    Port* find(const QString& name);

    Collaborators c_;
    Options options_;
    QMap<QString, Port> ports_;
    QList<usb::PropertyMap> devices_;
    QTimer tick_;
    QTimer evaluation_;
    QTimer startGate_;
    double startedAt_ = 0;
    double lastStart_ = -std::numeric_limits<double>::infinity();
    QString pendingStart_;  // the port whose Mac is being looked up to start its restore
    // Hub ports USB has shown; one more than before means a hub was plugged in.
    QSet<QString> portsOnUsb_;
    bool hubRefreshWanted_ = false;
    bool refreshing_ = false;
    // Sequences held while the hubs are looked for again: port, and whether it is recovery.
    QHash<QString, bool> heldSequences_;
    int restoring_ = 0;
    bool watching_ = false;
    bool stopping_ = false;
    bool stoppedSent_ = false;
    BenchSummary counts_;
};

}  // namespace unattended
