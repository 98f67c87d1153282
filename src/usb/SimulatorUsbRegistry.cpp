#include "usb/SimulatorUsbRegistry.h"

#include "core/Log.h"
#include "core/SimulatorConnection.h"
#include "usb/UsbLocation.h"

#include <QJsonArray>
#include <QSet>

#include <cmath>
#include <utility>

namespace usb {
namespace {

QVariant valueFromJson(const QString& key, const QJsonValue& value) {
    if (value.isString()) {
        if (key == keys::ecid) {
            bool ok = false;
            const qulonglong ecid = value.toString().toULongLong(&ok, 10);
            if (ok && !fitsRegistryEcid(ecid))
                ZMRLogDebug(
                    QStringLiteral("simulated device's ECID %1 does not fit the registry; left out")
                        .arg(value.toString()));
            return ok && fitsRegistryEcid(ecid) ? QVariant(ecid) : QVariant();
        }
        return value.toString();
    }
    if (value.isDouble()) {
        const double number = value.toDouble();
        if (std::trunc(number) == number)
            return qlonglong(value.toInteger(qlonglong(number)));
        return number;
    }
    if (value.isBool())
        return value.toBool();
    return {};  // the simulator sends no nested values; anything else is not a property
}

QString sessionOf(const PropertyMap& properties) {
    return properties.value(keys::sessionID).toString();
}

// Who a device is, whatever session a simulator gave it: where it sits, what it is, and its own
// serial number or ECID. A restarted simulator numbers its sessions anew, so sessions from before
// and after it cannot be compared.
QString identityOf(const PropertyMap& properties) {
    const QVariant ecid = properties.value(keys::ecid);
    return QStringList{
        properties.value(keys::locationID).toString(), properties.value(keys::vendorID).toString(),
        properties.value(keys::productID).toString(),
        ecid.isValid() ? ecid.toString() : properties.value(keys::serialNumber).toString()}
        .join('/');
}

QSet<QString> identities(const QHash<QString, PropertyMap>& devices) {
    QSet<QString> known;
    for (const PropertyMap& properties : devices) known.insert(identityOf(properties));
    return known;
}

}  // namespace

SimulatorUsbRegistry::SimulatorUsbRegistry(const QString& socketPath, QObject* parent)
    : UsbRegistry(parent), connection_(new core::SimulatorConnection(socketPath, this)) {
    connect(connection_, &core::SimulatorConnection::disconnected, this, [this] {
        // Nothing comes on that subscription any more; the next watch subscribes anew.
        subscribed_ = false;
        ZMRLogLevel0(
            QStringLiteral("The simulator closed its socket; USB arrivals and removals stopped"));
        emit watchingLost(QStringLiteral("the simulator closed its socket"));
    });
    connect(connection_, &core::SimulatorConnection::eventReceived, this,
            &SimulatorUsbRegistry::handleEvent);
}

SimulatorUsbRegistry::~SimulatorUsbRegistry() = default;

PropertyMap SimulatorUsbRegistry::propertiesFromJson(const QJsonObject& device) {
    PropertyMap properties;
    for (auto it = device.begin(); it != device.end(); ++it) {
        const QVariant value = valueFromJson(it.key(), it.value());
        if (value.isValid())
            properties.insert(it.key(), value);
    }
    return properties;
}

std::optional<QList<PropertyMap>> SimulatorUsbRegistry::devices() {
    const std::optional<QJsonObject> reply = connection_->request(QStringLiteral("usb.list"));
    if (!reply || reply->value(QStringLiteral("result")).toInt(-1) != 0)
        return std::nullopt;
    QList<PropertyMap> result;
    for (const QJsonValue device : reply->value(QStringLiteral("devices")).toArray())
        result.append(propertiesFromJson(device.toObject()));
    return result;
}

QString SimulatorUsbRegistry::lastError() const {
    return connection_->lastError();
}

QList<PropertyMap> SimulatorUsbRegistry::startWatching() {
    if (watchers_++ == 0 && !subscribed_) {
        // Subscribed before the listing, so nothing that arrives in between is lost.
        subscribed_ = connection_->subscribe({QStringLiteral("usb")});
        if (!subscribed_)
            ZMRLogLevel1(QStringLiteral("USB arrivals and removals cannot be watched: ") +
                         connection_->lastError());
    }
    const QList<PropertyMap> present = devices().value_or(QList<PropertyMap>{});
    for (const PropertyMap& properties : present)
        attached_.insert(sessionOf(properties), properties);
    return present;
}

bool SimulatorUsbRegistry::resumeWatching() {
    if (watchers_ == 0)
        return false;
    if (!subscribed_)
        subscribed_ = connection_->subscribe({QStringLiteral("usb")});
    if (!subscribed_)
        return false;
    const std::optional<QList<PropertyMap>> present = devices();
    if (!present)
        return false;
    // What changed while the simulator was away is told by comparing devices by identity.
    QHash<QString, PropertyMap> now;
    for (const PropertyMap& properties : *present) now.insert(sessionOf(properties), properties);
    const QHash<QString, PropertyMap> before = std::exchange(attached_, now);
    const QSet<QString> identitiesBefore = identities(before);
    const QSet<QString> identitiesNow = identities(now);
    for (const PropertyMap& properties : before)
        if (!identitiesNow.contains(identityOf(properties)))
            emit deviceRemoved(properties);
    for (const PropertyMap& properties : *present)
        if (!identitiesBefore.contains(identityOf(properties)))
            emit deviceArrived(properties);
    ZMRLogLevel0(
        QStringLiteral("The simulator is back; USB arrivals and removals are watched "
                       "again, starting from the devices attached now"));
    return true;
}

void SimulatorUsbRegistry::stopWatching() {
    // The simulator has no unsubscribe; events are simply no longer passed on.
    if (watchers_ > 0 && --watchers_ == 0)
        attached_.clear();
}

void SimulatorUsbRegistry::handleEvent(const QString& name, const QJsonObject& payload) {
    if (watchers_ == 0)
        return;
    const PropertyMap properties =
        propertiesFromJson(payload.value(QStringLiteral("device")).toObject());
    const QString session = sessionOf(properties);
    if (name == QLatin1String("usb.added")) {
        if (attached_.contains(session))
            return;
        attached_.insert(session, properties);
        emit deviceArrived(properties);
    } else if (name == QLatin1String("usb.removed")) {
        if (!attached_.remove(session))
            return;
        emit deviceRemoved(properties);
    }
}

}  // namespace usb
