#include "configurator/UsbLookups.h"

#include "usb/DeviceIOKit.h"

namespace configurator {
namespace {

// The registry of this process (udev, or the simulator's USB view when one is selected); on a
// system without either, DeviceIOKit answers nothing.
class DeviceIOKitLookups final : public UsbLookups {
  public:
    std::optional<QString> vendorSerialNumber(std::uint64_t address, std::int64_t vendor) override {
        return usb_.vendorSerialNumberWithDeviceAddress(address, vendor);
    }
    std::optional<QString> normalizedSerialNumber(const std::optional<QString>& serial) override {
        return DeviceIOKit::normalizedSerialNumberWithSerialNumber(serial);
    }
    bool deviceInDFUMode(std::uint64_t address, std::int64_t vendor) override {
        return usb_.deviceInDFUModeWithDeviceAddress(address, vendor);
    }
    QVariantMap vendorDeviceInfo(std::uint64_t address, std::int64_t vendor) override {
        QVariantMap info;
        const QMap<QString, QString> properties =
            usb_.vendorDeviceInfoWithDeviceAddress(address, vendor);
        for (auto it = properties.cbegin(); it != properties.cend(); ++it)
            info.insert(it.key(), it.value());
        return info;
    }

  private:
    DeviceIOKit usb_;
};

}  // namespace

UsbLookupsFactory systemUsbLookups() {
    return [] { return std::make_unique<DeviceIOKitLookups>(); };
}

}  // namespace configurator
