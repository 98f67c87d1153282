#pragma once

#include <QObject>
#include <QString>

#include <cstdint>

namespace unattended {

// What the bench learns of the Mac it restores on a port.
struct RestoredMac {
    QString model;
    std::uint64_t ecid = 0;
    QString serialNumber;
};

// The restore side of the bench: finds the Mac in DFU mode at a port's USB location and restores
// it through the restore queue, so its outcome is kept as every restore's is. Main thread.
class Restorer : public QObject {
    Q_OBJECT
  public:
    using QObject::QObject;

    // Looks for the Mac at `location` and starts its restore: started() when it began,
    // notListed() when Apple Configurator does not list it in DFU mode yet, refused() when the
    // restore could not be queued at all.
    virtual void restore(const QString& port, std::uint64_t location) = 0;
    // Stops every restore under way; each still ends through finished().
    virtual void cancelAll() = 0;

  signals:
    void started(const QString& port, const unattended::RestoredMac& mac);
    void notListed(const QString& port);
    void refused(const QString& port, const QString& why);
    void progress(const QString& port, const QString& step, double progress);
    // ok: restored; otherwise `message` is the tool's error or "Restore Cancelled".
    void finished(const QString& port, bool ok, bool cancelled, const QString& message);
};

}  // namespace unattended

Q_DECLARE_METATYPE(unattended::RestoredMac)
