#include "configurator/AC2Device.h"

#include "configurator/PortDescription.h"

namespace {

// How the log has always shown an empty value.
const QString nullText = QStringLiteral("(null)");

QString orNullText(const QString& text) {
    return text.isEmpty() ? nullText : text;
}

}  // namespace

QString formatEcid(std::uint64_t ecid) {
    return QStringLiteral("0x") + QString::number(ecid, 16).toUpper();
}

#define AC2_ACCESSORS(Type, getter, setter, member) \
    Type AC2Device::getter() const {                \
        std::lock_guard lock(mutex_);               \
        return member;                              \
    }                                               \
    void AC2Device::setter(const Type& value) {     \
        std::lock_guard lock(mutex_);               \
        member = value;                             \
    }

#define AC2_VALUE_ACCESSORS(Type, getter, setter, member) \
    Type AC2Device::getter() const {                      \
        std::lock_guard lock(mutex_);                     \
        return member;                                    \
    }                                                     \
    void AC2Device::setter(Type value) {                  \
        std::lock_guard lock(mutex_);                     \
        member = value;                                   \
    }

AC2_VALUE_ACCESSORS(std::uint64_t, ecid, setEcid, ecid_)
AC2_ACCESSORS(QString, udid, setUdid, udid_)
AC2_ACCESSORS(QString, productID, setProductID, productID_)
AC2_ACCESSORS(QString, deviceType, setDeviceType, deviceType_)
AC2_VALUE_ACCESSORS(std::int64_t, locationID, setLocationID, locationID_)
AC2_ACCESSORS(QString, name, setName, name_)
AC2_ACCESSORS(QString, serialNumber, setSerialNumber, serialNumber_)
AC2_ACCESSORS(QString, restoreStatus, setRestoreStatus, restoreStatus_)
AC2_VALUE_ACCESSORS(bool, isRestoring, setIsRestoring, isRestoring_)
AC2_VALUE_ACCESSORS(bool, didCancel, setDidCancel, didCancel_)
AC2_VALUE_ACCESSORS(bool, inDFU, setInDFU, inDFU_)
AC2_ACCESSORS(QVariantMap, ioKitInfo, setIoKitInfo, ioKitInfo_)
AC2_VALUE_ACCESSORS(std::shared_ptr<AcronamePort>, port, setPort, port_)

#undef AC2_ACCESSORS
#undef AC2_VALUE_ACCESSORS

QString AC2Device::description() const {
    std::lock_guard lock(mutex_);
    // "acronamePort;" with its semicolon is what people grep existing logs for.
    return QStringLiteral(
               "ecid: %1, udid: %2, devicetype: %3, locationID: %4, name: %5, acronamePort; %6")
        .arg(formatEcid(ecid_), orNullText(udid_), orNullText(deviceType_))
        .arg(locationID_)
        .arg(orNullText(name_),
             port_ ? orNullText(configurator::portDescription(*port_)) : nullText);
}

QVariantMap AC2Device::deviceinfo() const {
    std::lock_guard lock(mutex_);
    const auto text = [](const QString& value) {
        return value.isNull() ? QStringLiteral("") : value;
    };
    return {
        {QStringLiteral("ecid"), formatEcid(ecid_)},
        {QStringLiteral("udid"), text(udid_)},
        {QStringLiteral("productID"), text(productID_)},
        {QStringLiteral("deviceType"), text(deviceType_)},
        {QStringLiteral("locationID"),
         QStringLiteral("0x") + QString::number(static_cast<quint64>(locationID_), 16).toUpper()},
        {QStringLiteral("name"), text(name_)},
        {QStringLiteral("serialNumber"), text(serialNumber_)},
    };
}
