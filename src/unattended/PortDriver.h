#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

namespace unattended {

// How one port's sequence ended, in the words of the command line's verdicts.
struct SequenceOutcome {
    bool ok = false;
    bool nothingConnected = false;  // the port showed no cable: the Mac was pulled out
    QString reason;                 // "DFU message, result 6", "hub 1C3B4A01 went away", ...
};

// The hub side of the bench: the usable ports, and the one-port sequences. Every signal comes on
// the main thread; sequences on different ports run at the same time.
class PortDriver : public QObject {
    Q_OBJECT
  public:
    using QObject::QObject;

    // The usable hub ports ("1C3B4A01:3"), once ready() was emitted.
    virtual QStringList ports() const = 0;
    // Looks for the hubs again (one was plugged in); ready() when done. Never asked while a
    // sequence runs: it reconnects every hub.
    virtual void refresh() = 0;
    virtual void dfu(const QString& port) = 0;
    virtual void recovery(const QString& port) = 0;
    // Sequences stop before their next step; their ends still come.
    virtual void stop() = 0;

  signals:
    void ready();
    void sequenceEnded(const QString& port, const unattended::SequenceOutcome& outcome);
};

}  // namespace unattended

Q_DECLARE_METATYPE(unattended::SequenceOutcome)
