#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QStringList>

#include <memory>
#include <vector>

class AcronameHub;

namespace testing_support {

struct StationMac {
    int port = 0;
    QByteArray ecid{};          // "0x11"
    QByteArray serialNumber{};  // "AAAA000011"
    QByteArray state = "booted";
    QByteArray fields{};  // more fields of the Mac ("ignoresDFU": true)
};

struct StationHub {
    quint32 serial = 0;
    QList<StationMac> macs{};
    QByteArray faults{};  // the hub's "faults" entries
    QByteArray fields{};  // more fields of the hub ("vanishAfter": …)
};

// A station of hubs with Macs on their ports: as a station file for tarvel-sim, and as the hub
// objects and fake hardware that tests below the simulator drive. Hub h (from 1) has serial
// firstSerial + h - 1; the Mac on its port p has ECID 0x<h><p> and serial number AAAA0000<h><p>.
class StationBuilder {
  public:
    StationBuilder() : StationBuilder(2) {}
    explicit StationBuilder(int hubs, int macsPerHub = 5, quint32 firstSerial = 0x1C3B4A01);

    StationBuilder& macState(const QByteArray& state);  // of every Mac
    StationBuilder& macState(int hub, int port, const QByteArray& state);
    StationBuilder& macFields(int hub, int port, const QByteArray& fields);
    StationBuilder& macEcid(int hub, int port, const QByteArray& ecid);
    // Every Mac is named `prefix` and its place, as technicians name a bench.
    StationBuilder& macNames(const QByteArray& prefix);
    StationBuilder& hubFaults(int hub, const QByteArray& faults);
    StationBuilder& hubFields(int hub, const QByteArray& fields);
    StationBuilder& timing(const QByteArray& key, double seconds);
    StationBuilder& fields(const QByteArray& fields);  // more top-level fields ("localDFU": …)

    const QList<StationHub>& hubs() const { return hubs_; }
    bool hasTiming(const QByteArray& key) const { return timing_.contains(key); }
    // "1C3B4A01:1", … : every port that has a Mac, hub by hub.
    QStringList portNames() const;

    QByteArray json() const;
    // The hubs as objects with no hardware behind them, with a connected port for each Mac.
    std::vector<std::shared_ptr<AcronameHub>> acronameHubs() const;

  private:
    StationMac& mac(int hub, int port);

    QList<StationHub> hubs_;
    QMap<QByteArray, double> timing_;
    QByteArray fields_;
};

}  // namespace testing_support
