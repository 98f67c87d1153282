#pragma once

#include "unattended/PortDriver.h"

#include "usb/UsbRegistry.h"

#include <QHash>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

namespace unattended {

// Runs the ports' sequences through the driver, and has the hubs looked for again when one is
// plugged in. That reconnects every hub and would cut the sequences under way: the refresh waits
// until none runs, and a sequence due meanwhile waits for the refresh. Main thread.
class PortSequencer {
  public:
    // `followNewHubs`: a bench of every usable port takes in the ports of a hub plugged in.
    PortSequencer(PortDriver& driver, bool followNewHubs);

    // The bus as the bench starts: the hub ports on it are the known ones.
    void start(const QList<usb::PropertyMap>& devices);
    // The bus changed; a hub port not seen before means a hub was plugged in.
    void noticeBus(const QList<usb::PropertyMap>& devices);

    void run(const QString& port, bool recovery);
    // The driver told the end of the port's sequence.
    void ended(const QString& port);
    // The hubs were found again: the sequences held for it go on.
    void refreshed();
    // A sequence runs or waits for the refresh.
    bool anyUnderWay() const { return !running_.isEmpty() || !held_.isEmpty(); }

    // No more refreshes; the sequences under way stop before their next step. Answers the ports
    // whose sequences were held for a refresh: they never began, and never will.
    QStringList stop();

  private:
    void refreshWhenIdle();
    void begin(const QString& port, bool recovery);

    PortDriver& driver_;
    bool followNewHubs_;
    bool stopped_ = false;
    QSet<QString> portsOnUsb_;
    QSet<QString> running_;
    // Sequences held while the hubs are looked for again: port, and whether it is recovery.
    QHash<QString, bool> held_;
    bool refreshWanted_ = false;
    bool refreshing_ = false;
};

}  // namespace unattended
