#pragma once

#include "configurator/UsbLookups.h"
#include "usb/DeviceIOKit.h"

#include <QStringList>

#include <map>

namespace testing_support {

// A USB registry of property maps keyed by location, recording every question asked.
class FakeUsbLookups final : public configurator::UsbLookups {
  public:
    std::map<std::uint64_t, QVariantMap> devices;
    QStringList asked;

    std::optional<QString> vendorSerialNumber(std::uint64_t address, std::int64_t vendor) override {
        asked << QStringLiteral("serial %1 %2").arg(address).arg(vendor);
        const QVariantMap info = find(address);
        if (!info.contains("kUSBSerialNumberString"))
            return std::nullopt;
        return info.value("kUSBSerialNumberString").toString();
    }
    std::optional<QString> normalizedSerialNumber(const std::optional<QString>& serial) override {
        return DeviceIOKit::normalizedSerialNumberWithSerialNumber(serial);
    }
    bool deviceInDFUMode(std::uint64_t address, std::int64_t vendor) override {
        asked << QStringLiteral("dfu %1 %2").arg(address).arg(vendor);
        const QVariantMap info = find(address);
        return info.value("kUSBSerialNumberString").toString().contains("iBoot") ||
               info.value("kUSBProductString").toString().contains("DFU");
    }
    QVariantMap vendorDeviceInfo(std::uint64_t address, std::int64_t vendor) override {
        asked << QStringLiteral("info %1 %2").arg(address).arg(vendor);
        return find(address);
    }

  private:
    QVariantMap find(std::uint64_t address) const {
        const auto it = devices.find(address);
        return it == devices.end() ? QVariantMap() : it->second;
    }
};

}  // namespace testing_support
