#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <cstdint>
#include <vector>

namespace sim {

class Hub;
class Mac;

// Property maps keyed by the IOKit names, as the USB registry shows each device.
QJsonObject hubUsbDevice(const Hub& hub);
QJsonObject hubStemUsbDevice(const Hub& hub);
QJsonObject hubSuperSpeedUsbDevice(const Hub& hub);  // the hub's USB 3 half, on bus 2
QJsonObject hubBillboardUsbDevice(const Hub& hub);   // a second service at the hub's location
QJsonObject rootHubUsbDevice(int bus);
QList<QJsonObject> benchPeripherals();
QJsonObject macUsbDevice(const Mac& mac, std::uint32_t location);  // an empty map when it is off

// What makes a device the same device from one view of the bus to the next.
struct UsbIdentity {
    qint64 location = 0;
    int vendor = 0;
    int product = 0;
    QString serial;

    static UsbIdentity of(const QJsonObject& device);
    bool operator==(const UsbIdentity&) const = default;
};
size_t qHash(const UsbIdentity& identity, size_t seed = 0);

struct UsbChange {
    bool added;
    QJsonObject device;
};

// The devices last published on the bus. Each new view is compared with it: a device that
// changed identity at the same location counts as removed and added again, and every arrival
// gets a session ID of its own that its removal repeats.
class UsbBus {
  public:
    std::vector<UsbChange> update(const QList<QJsonObject>& current);
    QJsonArray devices() const;

  private:
    struct Published {
        UsbIdentity identity;
        QJsonObject device;
    };
    QList<Published> published_;
    std::uint64_t nextSession_ = 1;
};

}  // namespace sim
