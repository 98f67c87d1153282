#pragma once

#include "Protocol.h"
#include "Scheduler.h"
#include "Station.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <memory>

namespace simtest {

inline constexpr qint64 hubA = 0x1C3B4A01;
inline constexpr qint64 hubB = 0x1C3B4A02;
inline constexpr qint64 port3 = 0x01130000;  // hub A, port 3
inline const QString mac3 = QStringLiteral("F7NQ4XR2HT");
inline const QByteArray dfuBytes = "040000001280ac050601000000000180";
inline const QByteArray rebootBytes = "040000001280ac050501000000000080";

struct Event {
    QString topic;
    QString name;
    QJsonObject payload;
};

// A station on a hand-driven clock, spoken to through the same request handler the socket uses.
class StationTest : public ::testing::Test {
  protected:
    void start(sim::StationConfig config) {
        station_ = std::make_unique<sim::Station>(std::move(config), clock_);
        station_->setEventSink(
            [this](const QString& topic, const QString& name, const QJsonObject& payload) {
                events_.push_back({topic, name, payload});
            });
        protocol_ = std::make_unique<sim::Protocol>(*station_, 1.0);
    }
    void startFromJson(const QByteArray& json) {
        sim::StationLoad load = sim::parseStation(json, QStringLiteral("test.json"));
        ASSERT_TRUE(load.station) << load.errors.join(u'\n').toStdString();
        start(std::move(*load.station));
    }

    QJsonObject call(const QString& name, QJsonObject arguments = {}) {
        arguments.insert(QStringLiteral("id"), 1);
        arguments.insert(QStringLiteral("call"), name);
        return protocol_->handle(arguments);
    }
    // Opens a library link to the hub, as the driver's connect does; answers the result.
    int connectHub(qint64 serial) {
        const QJsonObject reply =
            call(QStringLiteral("stem.connect"),
                 {{QStringLiteral("linkType"), 1}, {QStringLiteral("serial"), serial}});
        links_[serial] = reply.value("link").toInteger();
        return reply.value("result").toInt(-1);
    }
    // An entity call over this test's link to the hub (opened on first use).
    int stem(const QString& method, qint64 serial, int index, QJsonObject arguments = {}) {
        if (!links_.contains(serial))
            connectHub(serial);
        arguments.insert(QStringLiteral("serial"), serial);
        arguments.insert(QStringLiteral("index"), index);
        arguments.insert(QStringLiteral("link"), links_.value(serial));
        return call(QStringLiteral("stem.") + method, arguments).value("result").toInt(-1);
    }
    // Puts a port into power-delivery mode and waits out the contract, as the DFU pass does.
    void negotiate(qint64 serial, int port) {
        ASSERT_EQ(stem(QStringLiteral("port.setPowerMode"), serial, port, {{"value", 4}}), 0);
        clock_.advance(station_->config().timing.pdContractSeconds);
    }
    int message(qint64 serial, int port, const QByteArray& hex) {
        return stem(QStringLiteral("pd.setUEIBytes"), serial, port,
                    {{"option", 48}, {"bytes", QString::fromLatin1(hex)}});
    }

    // The device the USB view shows at a location, or an empty map.
    QJsonObject usbAt(qint64 location) {
        for (const QJsonValue& device : call(QStringLiteral("usb.list")).value("devices").toArray())
            if (device.toObject().value("locationID").toInteger() == location)
                return device.toObject();
        return {};
    }
    // The result code a call answers (-1 when it names none).
    int result(const QString& name, QJsonObject arguments = {}) {
        return call(name, std::move(arguments)).value("result").toInt(-1);
    }
    QJsonObject macNamed(const QString& serialNumber) {
        for (const QJsonValue& mac : call(QStringLiteral("macs.list")).value("macs").toArray())
            if (mac.toObject().value("serialNumber").toString() == serialNumber)
                return mac.toObject();
        return {};
    }
    std::vector<Event> eventsNamed(const QString& name) const {
        std::vector<Event> found;
        for (const Event& event : events_)
            if (event.name == name)
                found.push_back(event);
        return found;
    }

    sim::ManualScheduler clock_;
    std::unique_ptr<sim::Station> station_;
    std::unique_ptr<sim::Protocol> protocol_;
    std::vector<Event> events_;
    QHash<qint64, qint64> links_;
};

// The shipped default station.
class DefaultStationTest : public StationTest {
  protected:
    void SetUp() override { start(sim::defaultStation()); }
};

}  // namespace simtest
