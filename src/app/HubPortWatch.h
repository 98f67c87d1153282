#pragma once

#include "usb/HubPortNames.h"

#include <QElapsedTimer>
#include <QObject>
#include <QStringList>
#include <QTimer>

#include <cstdint>
#include <optional>
#include <vector>

class AC2Device;

namespace core {
class NotificationCenter;
}
namespace usb {
class UsbRegistry;
}

namespace app {

// The hub ports of the bench as the USB registry shows them: read again shortly after each burst
// of USB arrivals and removals, and at most once a second for the Macs' "Hub : Port" cells, which
// ask at every paint.
class HubPortWatch : public QObject {
    Q_OBJECT

  public:
    HubPortWatch(usb::UsbRegistry& registry, core::NotificationCenter& center,
                 QObject* parent = nullptr);
    ~HubPortWatch() override;

    // The port the Mac hangs on, "HUB:PORT"; empty when it is on none the registry knows.
    QString portOf(const AC2Device& device);
    // Reads the ports now and again after every burst of arrivals and removals.
    void follow();

  signals:
    // Every usable port of the hubs on the bus, as last read.
    void portsRead(const QStringList& ports);

  private:
    void read();
    void readIfOld();

    usb::UsbRegistry& registry_;
    core::NotificationCenter& center_;
    std::optional<usb::HubPortNames> names_;
    QElapsedTimer age_;
    std::vector<std::uint64_t> observers_;
    QTimer burstEnd_;
};

}  // namespace app
