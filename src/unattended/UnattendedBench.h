#pragma once

#include "unattended/BenchPort.h"
#include "unattended/BenchSummary.h"
#include "unattended/BusWatch.h"
#include "unattended/PortCycles.h"
#include "unattended/PortDriver.h"
#include "unattended/PortSequencer.h"
#include "unattended/RestoreAdmission.h"
#include "unattended/Restorer.h"

#include "usb/UsbRegistry.h"

#include <QList>
#include <QObject>
#include <QStringList>
#include <QTimer>

#include <functional>

namespace unattended {

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
    static constexpr int dfuAttempts = PortCycles::dfuAttempts;

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

    // Waits for the driver's ports, then counts the Macs already there as just plugged in.
    void start();
    // Cancels the restores and stops the sequences under way; stopped() once all have ended.
    void stop();

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
    void driverReady();
    void adoptNewPorts();
    void evaluate();
    void checkStopped();

    Collaborators c_;
    Options options_;
    BusWatch bus_;
    PortSequencer sequencer_;
    RestoreAdmission admission_;
    PortCycles cycles_;
    QTimer tick_;
    double startedAt_ = 0;
    bool stopping_ = false;
    bool stoppedSent_ = false;
};

}  // namespace unattended
