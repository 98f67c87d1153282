#include "support/StationBuilder.h"

#include "core/HubPortName.h"
#include "hubs/AcronameHub.h"
#include "hubs/AcronamePort.h"

namespace testing_support {

StationBuilder::StationBuilder(int hubs, int macsPerHub, quint32 firstSerial) {
    for (int h = 1; h <= hubs; ++h) {
        StationHub hub{.serial = firstSerial + quint32(h - 1)};
        for (int p = 1; p <= macsPerHub; ++p) {
            const QByteArray id = QByteArray::number(h * 10 + p);
            hub.macs << StationMac{.port = p, .ecid = "0x" + id, .serialNumber = "AAAA0000" + id};
        }
        hubs_ << hub;
    }
}

StationMac& StationBuilder::mac(int hub, int port) {
    return hubs_[hub - 1].macs[port - 1];
}

StationBuilder& StationBuilder::macState(const QByteArray& state) {
    for (StationHub& hub : hubs_)
        for (StationMac& mac : hub.macs) mac.state = state;
    return *this;
}

StationBuilder& StationBuilder::macState(int hub, int port, const QByteArray& state) {
    mac(hub, port).state = state;
    return *this;
}

StationBuilder& StationBuilder::macFields(int hub, int port, const QByteArray& fields) {
    mac(hub, port).fields = fields;
    return *this;
}

StationBuilder& StationBuilder::macEcid(int hub, int port, const QByteArray& ecid) {
    mac(hub, port).ecid = ecid;
    return *this;
}

StationBuilder& StationBuilder::macNames(const QByteArray& prefix) {
    for (StationHub& hub : hubs_)
        for (StationMac& mac : hub.macs)
            mac.fields = R"("name": ")" + prefix + " — " +
                         core::hubPortName(hub.serial, mac.port).toUtf8() + '"';
    return *this;
}

StationBuilder& StationBuilder::hubFaults(int hub, const QByteArray& faults) {
    hubs_[hub - 1].faults = faults;
    return *this;
}

StationBuilder& StationBuilder::hubFields(int hub, const QByteArray& fields) {
    hubs_[hub - 1].fields = fields;
    return *this;
}

StationBuilder& StationBuilder::timing(const QByteArray& key, double seconds) {
    timing_.insert(key, seconds);
    return *this;
}

StationBuilder& StationBuilder::fields(const QByteArray& fields) {
    fields_ = fields;
    return *this;
}

QStringList StationBuilder::portNames() const {
    QStringList names;
    for (const StationHub& hub : hubs_)
        for (const StationMac& mac : hub.macs) names << core::hubPortName(hub.serial, mac.port);
    return names;
}

namespace {

QByteArray withFields(QByteArray object, const QByteArray& fields) {
    return fields.isEmpty() ? object + '}' : object + ", " + fields + '}';
}

QByteArray macJson(const StationMac& mac) {
    return withFields(R"({"port": )" + QByteArray::number(mac.port) + R"(, "ecid": ")" + mac.ecid +
                          R"(", "serialNumber": ")" + mac.serialNumber + R"(", "state": ")" +
                          mac.state + '"',
                      mac.fields);
}

QByteArray hubJson(const StationHub& hub, int usbID) {
    QByteArrayList macs;
    for (const StationMac& mac : hub.macs) macs << macJson(mac);
    return withFields(R"({"serial": "0x)" + QByteArray::number(hub.serial, 16).toUpper() +
                          R"(", "usbID": )" + QByteArray::number(usbID) + R"(, "faults": [)" +
                          hub.faults + R"(], "macs": [)" + macs.join(", ") + ']',
                      hub.fields);
}

}  // namespace

QByteArray StationBuilder::json() const {
    QByteArrayList timing;
    for (const auto& [key, seconds] : timing_.asKeyValueRange())
        timing << '"' + key + "\": " + QByteArray::number(seconds);
    QByteArrayList hubs;
    for (int h = 0; h < hubs_.size(); ++h) hubs << hubJson(hubs_[h], h + 1);
    return withFields(
        R"({"timing": {)" + timing.join(", ") + R"(}, "hubs": [)" + hubs.join(",\n") + ']',
        fields_);
}

std::vector<std::shared_ptr<AcronameHub>> StationBuilder::acronameHubs() const {
    std::vector<std::shared_ptr<AcronameHub>> made;
    for (const StationHub& spec : hubs_) {
        auto hub = std::make_shared<AcronameHub>(nullptr);
        hub->setSerialNumber(spec.serial);
        std::vector<std::shared_ptr<AcronamePort>> ports;
        for (const StationMac& mac : spec.macs) {
            auto port = std::make_shared<AcronamePort>();
            port->setPortID(mac.port);
            port->setHub(hub.get());
            port->setIsConnected(true);
            ports.push_back(port);
        }
        hub->setPorts(ports);
        made.push_back(hub);
    }
    return made;
}

}  // namespace testing_support
