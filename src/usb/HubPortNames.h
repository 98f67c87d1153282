#pragma once

#include "usb/PropertyValues.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <optional>

namespace usb {

// Which hub port a USB location hangs on, as the registry shows the bench: a Mac sits one hop
// below the Acroname hub whose USB serial number is the hub's serial in hexadecimal, at the hop
// of the port's number. Ports are named as everywhere else, "1C3B4A01:3" (usable ports 1-5).
class HubPortNames {
  public:
    explicit HubPortNames(const QList<PropertyMap>& devices);

    // The port at `location`; empty when it is not a usable port of a hub on the bus.
    QString nameOf(std::uint64_t location) const;
    // Every usable port of the hubs on the bus, hub by hub and port by port.
    QStringList names() const;
    // The location of the port named "HUB:PORT"; nullopt when that hub is not on the bus.
    std::optional<std::uint64_t> locationOf(const QString& name) const;

    // The location of the device on `port` of the hub at `hubLocation`; nullopt when the hub
    // already uses every hop a location can hold.
    static std::optional<std::uint64_t> portLocation(std::uint64_t hubLocation, int port);

  private:
    QHash<std::uint64_t, QString> names_;
    QHash<QString, std::uint64_t> locations_;
};

}  // namespace usb
