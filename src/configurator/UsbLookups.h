#pragma once

#include <QString>
#include <QVariantMap>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace configurator {

// The USB registry questions the device listing asks about one device, identified by its USB
// location and vendor. Production answers them through DeviceIOKit; a system without a USB
// registry answers nothing and the listing still yields records from the tool's output alone.
class UsbLookups {
  public:
    virtual ~UsbLookups() = default;
    virtual std::optional<QString> vendorSerialNumber(std::uint64_t address,
                                                      std::int64_t vendor) = 0;
    virtual std::optional<QString> normalizedSerialNumber(const std::optional<QString>& serial) = 0;
    virtual bool deviceInDFUMode(std::uint64_t address, std::int64_t vendor) = 0;
    virtual QVariantMap vendorDeviceInfo(std::uint64_t address, std::int64_t vendor) = 0;
};

// Each listing asks for a fresh object.
using UsbLookupsFactory = std::function<std::unique_ptr<UsbLookups>()>;

// The registry of this system.
UsbLookupsFactory systemUsbLookups();

}  // namespace configurator
