#include "usb/UdevUsbRegistry.h"

#include "core/Log.h"
#include "usb/UsbLocation.h"

#include <QSocketNotifier>

#include <libudev.h>

namespace usb {
namespace {

constexpr qlonglong appleVendorID = 0x05AC;

QString text(const char* value) {
    return value ? QString::fromUtf8(value).trimmed() : QString();
}

std::optional<qlonglong> hexNumber(const char* value) {
    if (!value)
        return std::nullopt;
    bool ok = false;
    const qlonglong number = QString::fromUtf8(value).trimmed().toLongLong(&ok, 16);
    return ok ? std::optional<qlonglong>(number) : std::nullopt;
}

std::optional<qlonglong> decimalNumber(const char* value) {
    if (!value)
        return std::nullopt;
    bool ok = false;
    const qlonglong number = QString::fromUtf8(value).trimmed().toLongLong(&ok, 10);
    return ok ? std::optional<qlonglong>(number) : std::nullopt;
}

// udev's PRODUCT property, "5ac/1227/0": vendor, product and release in hex. It survives in
// remove events, where the sysfs attributes are gone.
void identityFromProductProperty(udev_device* device, PropertyMap& properties) {
    const QStringList parts = text(udev_device_get_property_value(device, "PRODUCT")).split('/');
    if (parts.size() < 2)
        return;
    bool vendorOk = false, productOk = false;
    const qlonglong vendor = parts[0].toLongLong(&vendorOk, 16);
    const qlonglong product = parts[1].toLongLong(&productOk, 16);
    if (vendorOk && !properties.contains(keys::vendorID))
        properties[keys::vendorID] = vendor;
    if (productOk && !properties.contains(keys::productID))
        properties[keys::productID] = product;
}

void addLocation(udev_device* device, PropertyMap& properties) {
    std::optional<qlonglong> bus = decimalNumber(udev_device_get_sysattr_value(device, "busnum"));
    if (!bus)
        bus = decimalNumber(udev_device_get_property_value(device, "BUSNUM"));
    QString path = text(udev_device_get_sysattr_value(device, "devpath"));
    const auto fromName = busPositionFromName(text(udev_device_get_sysname(device)));
    if (!bus && fromName)
        bus = fromName->busNumber;
    if (path.isEmpty() && fromName)
        path = fromName->devicePath;
    if (!bus || path.isEmpty())
        return;

    const auto location = locationIDFor(static_cast<int>(*bus), path);
    // No locationID rather than 0: a look-up at address 0 would match this device, and a booted
    // Mac would read as in DFU.
    if (location)
        properties[keys::locationID] = qulonglong(*location);
    else
        ZMRLogDebug(QStringLiteral("USB device %1 (bus %2, port path %3) has no locationID")
                        .arg(text(udev_device_get_syspath(device)))
                        .arg(*bus)
                        .arg(path));
    properties[QStringLiteral("busnum")] = *bus;
    properties[QStringLiteral("devpath")] = path;
}

}  // namespace

UdevUsbRegistry::UdevUsbRegistry(QObject* parent) : UsbRegistry(parent) {}

UdevUsbRegistry::~UdevUsbRegistry() {
    closeMonitor();
}

PropertyMap UdevUsbRegistry::propertiesOf(udev_device* device) {
    PropertyMap properties;
    // Everything udev knows first, so the IOKit names below win where they overlap.
    udev_list_entry* entry = nullptr;
    udev_list_entry_foreach(entry, udev_device_get_properties_list_entry(device)) {
        properties[text(udev_list_entry_get_name(entry))] = text(udev_list_entry_get_value(entry));
    }
    properties[QStringLiteral("syspath")] = text(udev_device_get_syspath(device));
    properties[keys::sessionID] = text(udev_device_get_syspath(device));

    if (const auto vendor = hexNumber(udev_device_get_sysattr_value(device, "idVendor")))
        properties[keys::vendorID] = *vendor;
    if (const auto product = hexNumber(udev_device_get_sysattr_value(device, "idProduct")))
        properties[keys::productID] = *product;
    identityFromProductProperty(device, properties);
    if (const auto release = hexNumber(udev_device_get_sysattr_value(device, "bcdDevice")))
        properties[QStringLiteral("bcdDevice")] = *release;
    if (const auto address = decimalNumber(udev_device_get_sysattr_value(device, "devnum")))
        properties[QStringLiteral("USB Address")] = *address;
    addLocation(device, properties);

    const auto textAttribute = [&](const char* name, const QString& key) {
        if (const char* value = udev_device_get_sysattr_value(device, name))
            properties[key] = text(value);
    };
    textAttribute("serial", keys::serialNumber);
    textAttribute("product", keys::productName);
    textAttribute("manufacturer", keys::vendorName);

    if (properties.value(keys::vendorID).toLongLong() == appleVendorID) {
        if (const auto ecid = ecidFromSerialString(properties.value(keys::serialNumber).toString()))
            properties[keys::ecid] = qulonglong(*ecid);
    }
    return properties;
}

std::optional<QList<PropertyMap>> UdevUsbRegistry::devices() {
    // A context of its own: libudev objects must not be shared between threads.
    udev* context = udev_new();
    if (!context)
        return std::nullopt;
    udev_enumerate* enumerate = udev_enumerate_new(context);
    if (!enumerate) {
        udev_unref(context);
        return std::nullopt;
    }
    udev_enumerate_add_match_subsystem(enumerate, "usb");
    udev_enumerate_add_match_property(enumerate, "DEVTYPE", "usb_device");
    std::optional<QList<PropertyMap>> result;
    if (udev_enumerate_scan_devices(enumerate) >= 0) {
        result.emplace();
        udev_list_entry* entry = nullptr;
        udev_list_entry_foreach(entry, udev_enumerate_get_list_entry(enumerate)) {
            udev_device* device =
                udev_device_new_from_syspath(context, udev_list_entry_get_name(entry));
            if (!device)
                continue;  // gone between the scan and now
            result->append(propertiesOf(device));
            udev_device_unref(device);
        }
    }
    udev_enumerate_unref(enumerate);
    udev_unref(context);
    return result;
}

QList<PropertyMap> UdevUsbRegistry::startWatching() {
    // The monitor opens before the listing so nothing attached in between is lost; an arrival
    // already in the listing is recognised by its syspath and not reported twice.
    if (watchers_++ == 0 && !openMonitor())
        ZMRLogLevel1(QStringLiteral("USB arrivals and removals cannot be watched (udev monitor)"));
    const QList<PropertyMap> present = devices().value_or(QList<PropertyMap>{});
    for (const PropertyMap& properties : present)
        attached_.insert(properties.value(QStringLiteral("syspath")).toString(), properties);
    return present;
}

void UdevUsbRegistry::stopWatching() {
    if (watchers_ == 0)
        return;
    if (--watchers_ == 0) {
        closeMonitor();
        attached_.clear();
    }
}

bool UdevUsbRegistry::openMonitor() {
    udev_ = udev_new();
    if (!udev_)
        return false;
    monitor_ = udev_monitor_new_from_netlink(udev_, "udev");
    if (!monitor_ ||
        udev_monitor_filter_add_match_subsystem_devtype(monitor_, "usb", "usb_device") < 0 ||
        udev_monitor_enable_receiving(monitor_) < 0) {
        closeMonitor();
        return false;
    }
    notifier_ =
        std::make_unique<QSocketNotifier>(udev_monitor_get_fd(monitor_), QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, &UdevUsbRegistry::readMonitor);
    return true;
}

void UdevUsbRegistry::closeMonitor() {
    notifier_.reset();
    if (monitor_)
        udev_monitor_unref(monitor_);
    if (udev_)
        udev_unref(udev_);
    monitor_ = nullptr;
    udev_ = nullptr;
}

void UdevUsbRegistry::readMonitor() {
    while (monitor_) {
        udev_device* device = udev_monitor_receive_device(monitor_);
        if (!device)
            return;
        const QString action = text(udev_device_get_action(device));
        const QString syspath = text(udev_device_get_syspath(device));
        const bool isUsbDevice =
            text(udev_device_get_subsystem(device)) == QLatin1String("usb") &&
            text(udev_device_get_devtype(device)) == QLatin1String("usb_device");
        if (isUsbDevice && action == QLatin1String("add") && !attached_.contains(syspath)) {
            const PropertyMap properties = propertiesOf(device);
            attached_.insert(syspath, properties);
            emit deviceArrived(properties);
        } else if (isUsbDevice && action == QLatin1String("remove")) {
            const auto known = attached_.find(syspath);
            if (known == attached_.end()) {
                ZMRLogDebug(QStringLiteral("USB removal of unknown device %1").arg(syspath));
            } else {
                const PropertyMap properties = known.value();
                attached_.erase(known);
                emit deviceRemoved(properties);
            }
        }
        udev_device_unref(device);
    }
}

}  // namespace usb
