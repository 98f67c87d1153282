#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QVariantMap>

#include <optional>

namespace usb {

// One USB device as the registry describes it: IOKit property names ("idVendor", "idProduct",
// "locationID", "kUSBSerialNumberString", "kUSBProductString", "UsbAppleDeviceECID", ...) and
// whatever else the platform knows, each value a QString or an integer.
using PropertyMap = QVariantMap;

namespace keys {
inline const QString vendorID = QStringLiteral("idVendor");
inline const QString productID = QStringLiteral("idProduct");
inline const QString locationID = QStringLiteral("locationID");
inline const QString serialNumber = QStringLiteral("kUSBSerialNumberString");
inline const QString productName = QStringLiteral("kUSBProductString");
inline const QString vendorName = QStringLiteral("USB Vendor Name");
inline const QString ecid = QStringLiteral("UsbAppleDeviceECID");
inline const QString sessionID = QStringLiteral("sessionID");
}  // namespace keys

// The USB device registry: what is attached now, and arrivals and removals as they happen.
// devices() may be called from any thread; watching and the signals belong to the main thread.
class UsbRegistry : public QObject {
    Q_OBJECT
  public:
    using QObject::QObject;
    ~UsbRegistry() override = default;

    // Every attached device in the registry's own stable order; nullopt when the registry
    // cannot be read at all.
    virtual std::optional<QList<PropertyMap>> devices() = 0;

    // Starts delivering deviceArrived/deviceRemoved on the main loop and answers the devices
    // attached at that moment, so a watcher misses nothing between its listing and its first
    // event. Calls nest: every startWatching() is paired with one stopWatching().
    virtual QList<PropertyMap> startWatching() = 0;
    virtual void stopWatching() = 0;

    // After watchingLost: tries to hear arrivals and removals again. True when it does; what
    // changed meanwhile has then been reported as removals and arrivals. A registry that cannot
    // lose its watch never resumes one.
    virtual bool resumeWatching() { return false; }

    // Why the last listing failed, for messages to the user.
    virtual QString lastError() const { return {}; }

    // The registry of this process: the simulator when selectSimulator() was called or
    // TARVEL_SIM is set, the platform's otherwise. Chosen on first use.
    static UsbRegistry& shared();
    // Must be called before the first shared(); the command line's --simulate does.
    static void selectSimulator(const QString& socketPath);

  Q_SIGNALS:
    // A removal carries the properties the device had when it arrived.
    void deviceArrived(const usb::PropertyMap& properties);
    void deviceRemoved(const usb::PropertyMap& properties);
    // Arrivals and removals can no longer come (the simulator closed its socket); `why` says so.
    void watchingLost(const QString& why);
};

}  // namespace usb
