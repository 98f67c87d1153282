#pragma once

#include "usb/UsbRegistry.h"

#include <QString>
#include <QStringList>

#include <map>
#include <optional>

namespace station {

// HubAbsent: the port's hub itself is not on USB, so nothing can be said of its Mac.
enum class MacMode { Absent, HubAbsent, Booted, Dfu, Recovery };

// "no Mac", "no hub", "booted", "in DFU mode", "in recovery".
QString macModeText(MacMode mode);

// Where the Mac on a hub port is in its boot, as the USB registry shows it: the Mac hangs one hop
// below the hub whose USB serial number is the hub's serial, at the hop of the port's number.
class MacModeCheck {
  public:
    explicit MacModeCheck(usb::UsbRegistry& registry);

    // The mode of the Mac on each port named "HUB:PORT"; nullopt when the registry cannot be read.
    std::optional<std::map<QString, MacMode>> modes(const QStringList& names) const;

    static MacMode modeOf(const usb::PropertyMap& device);

  private:
    usb::UsbRegistry& registry_;
};

}  // namespace station
