#pragma once

#include <QString>
#include <QVariantMap>

#include <cstdint>
#include <memory>
#include <mutex>

class AcronamePort;

// One device as Apple Configurator reports it, completed from the USB registry and, where known,
// with the hub port it hangs on. Shared between the main thread and the restore workflow, so every
// property except myIdProperty is read and written under a lock.
class AC2Device {
  public:
    std::uint64_t ecid() const;
    void setEcid(std::uint64_t ecid);
    QString udid() const;
    void setUdid(const QString& udid);
    QString productID() const;
    void setProductID(const QString& productID);
    QString deviceType() const;
    void setDeviceType(const QString& deviceType);
    std::int64_t locationID() const;
    void setLocationID(std::int64_t locationID);
    QString name() const;
    void setName(const QString& name);
    QString serialNumber() const;
    void setSerialNumber(const QString& serialNumber);
    QString restoreStatus() const;
    void setRestoreStatus(const QString& restoreStatus);
    bool isRestoring() const;
    void setIsRestoring(bool isRestoring);
    bool didCancel() const;
    void setDidCancel(bool didCancel);
    bool inDFU() const;
    void setInDFU(bool inDFU);
    QVariantMap ioKitInfo() const;
    void setIoKitInfo(const QVariantMap& ioKitInfo);
    std::shared_ptr<AcronamePort> port() const;
    void setPort(std::shared_ptr<AcronamePort> port);

    const QString& myIdProperty() const { return myIdProperty_; }
    void setMyIdProperty(const QString& myIdProperty) { myIdProperty_ = myIdProperty; }

    // One line for the log.
    QString description() const;
    // Seven text entries, none of them null: ecid, udid, productID, deviceType, locationID, name,
    // serialNumber.
    QVariantMap deviceinfo() const;

  private:
    mutable std::mutex mutex_;
    std::uint64_t ecid_ = 0;
    QString udid_;
    QString productID_;
    QString deviceType_;
    std::int64_t locationID_ = 0;
    QString name_;
    QString serialNumber_;
    QString restoreStatus_;
    bool isRestoring_ = false;
    bool didCancel_ = false;
    bool inDFU_ = false;
    QVariantMap ioKitInfo_;
    std::shared_ptr<AcronamePort> port_;
    QString myIdProperty_;
};

// "0x" and upper-case hexadecimal without leading zeros, as ECIDs are shown to people.
QString formatEcid(std::uint64_t ecid);
