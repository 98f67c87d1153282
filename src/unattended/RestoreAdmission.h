#pragma once

#include "unattended/Restorer.h"

#include <QMap>
#include <QObject>
#include <QSet>
#include <QString>
#include <QTimer>

#include <cstdint>
#include <functional>
#include <limits>

namespace unattended {

// Whose restore starts next: one start at a time (its Mac is looked up first), the pause between
// processes after each start, no more restores at once than allowed, and the Mac waiting longest
// first. A Mac that Apple Configurator does not list yet is asked for again a little later.
// Main thread.
class RestoreAdmission final : public QObject {
    Q_OBJECT
  public:
    // Apple Configurator may list a Mac a moment after it shows on USB; ask again after this.
    static constexpr double listingRetrySeconds = 2;

    struct Rules {
        int maxRestores = 4;
        double secondsBetweenStarts = 3;
    };
    struct Collaborators {
        Restorer* restorer = nullptr;  // none: nothing is ever queued
        std::function<double()> now;   // station seconds
        int tickMilliseconds = 1000;   // one station second
        // The USB location of a port, where its Mac is looked for when its turn comes.
        std::function<std::uint64_t(const QString&)> locationOf;
    };

    RestoreAdmission(Collaborators collaborators, Rules rules, QObject* parent = nullptr);

    // The port's Mac is in DFU mode and waits for its turn, which may be now.
    void queue(const QString& port);
    // The port waits no more (its cycle ended).
    void withdraw(const QString& port);
    void tryStarts();
    // No more starts; the restores under way are cancelled and still end through finished().
    void stop();

    bool isLookingUp(const QString& port) const { return lookingUp_ == port; }
    // Nothing is being looked up and no restore runs.
    bool isIdle() const { return lookingUp_.isEmpty() && restoring_.isEmpty(); }

  signals:
    void started(const QString& port, const unattended::RestoredMac& mac);
    void refused(const QString& port, const QString& why);
    // ok: restored; otherwise `message` is the tool's error or "Restore Cancelled".
    void finished(const QString& port, bool ok, bool cancelled, const QString& message);

  private:
    struct Waiting {
        double since = 0;
        double lastListing = -std::numeric_limits<double>::infinity();
    };

    void restoreStarted(const QString& port, const RestoredMac& mac);
    void notListed(const QString& port);
    void restoreRefused(const QString& port, const QString& why);
    void restoreFinished(const QString& port, bool ok, bool cancelled, const QString& message);
    // The port waiting longest whose Mac may be asked for now; empty when none.
    QString next(double now) const;

    Collaborators c_;
    Rules rules_;
    // By port name, so that Macs queued at the same moment go in port order.
    QMap<QString, Waiting> waiting_;
    QSet<QString> restoring_;
    QString lookingUp_;
    double lastStart_ = -std::numeric_limits<double>::infinity();
    bool stopped_ = false;
    QTimer gate_;
};

}  // namespace unattended
