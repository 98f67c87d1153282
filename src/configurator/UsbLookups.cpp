#include "configurator/UsbLookups.h"

namespace configurator {
namespace {

// A system without a USB registry: every question answers nothing.
class NoUsbRegistry final : public UsbLookups {
public:
    std::optional<QString> vendorSerialNumber(std::uint64_t, std::int64_t) override { return {}; }
    std::optional<QString> normalizedSerialNumber(const std::optional<QString>&) override {
        return {};
    }
    bool deviceInDFUMode(std::uint64_t, std::int64_t) override { return false; }
    QVariantMap vendorDeviceInfo(std::uint64_t, std::int64_t) override { return {}; }
};

}  // namespace

UsbLookupsFactory systemUsbLookups() {
    return [] { return std::make_unique<NoUsbRegistry>(); };
}

}  // namespace configurator
