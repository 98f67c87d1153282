#include "cli/RestoreHubRetry.h"

#include "cli/ProgressDisplay.h"
#include "cli/StationSession.h"

#include "core/Clock.h"
#include "core/Log.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"
#include "usb/DeviceIOKit.h"
#include "usb/HubPortNames.h"
#include "usb/UsbRegistry.h"

#include <QCoreApplication>

namespace cli {
namespace {

constexpr std::int64_t appleVendor = 0x05AC;

QString portNameOf(const restore::DevicePtr& device) {
    const auto registry = usb::UsbRegistry::shared().devices();
    return usb::HubPortNames(registry.value_or(QList<usb::PropertyMap>()))
        .nameOf(static_cast<std::uint64_t>(device->locationID()));
}

// The Mac reboots into its boot ROM after the sequence; it is waited for as `dfu --verify` does.
bool showsInDfu(const restore::DevicePtr& device) {
    const auto location = static_cast<std::uint64_t>(device->locationID());
    const auto seconds =
        int(core::Settings::shared().boundedNumber(core::keys::verifyTimeoutSeconds));
    for (int waited = 0; !DeviceIOKit().deviceInDFUModeWithDeviceAddress(location, appleVendor);
         ++waited) {
        if (waited >= seconds)
            return false;
        QCoreApplication::processEvents();
        core::Clock::system().sleepSeconds(1);
    }
    return true;
}

}  // namespace

RestoreHubRetry::RestoreHubRetry(const CliContext& context) : context_(context) {}

RestoreHubRetry::~RestoreHubRetry() = default;

restore::RestoreSession::HubRetry RestoreHubRetry::collaborator() {
    if (context_.hubLibraryProblem())
        return {};
    return {[this](const restore::DevicePtr& device) { return isOnHubPort(device); },
            [this](const restore::DevicePtr& device, std::function<void(bool)> done) {
                done(reenterDfu(device));
            }};
}

bool RestoreHubRetry::isOnHubPort(const restore::DevicePtr& device) const {
    return !portNameOf(device).isEmpty();
}

bool RestoreHubRetry::reenterDfu(const restore::DevicePtr& device) {
    const QString name = portNameOf(device);
    if (!station_)
        station_ = std::make_unique<StationSession>(context_);
    QString error;
    const auto ports =
        station_->selectPorts(station_->refresh(), false, {name.toStdString()}, error);
    if (!ports) {
        ZMRLogLevel0(QStringLiteral("Cannot put %1 back into DFU mode: %2")
                         .arg(formatEcid(device->ecid()), error));
        return false;
    }
    ProgressDisplay quiet(
        {}, [](const QByteArray&) {}, [] { return qint64(0); });
    const station::PortVerdict verdict =
        station_->run(StationSession::Sequence::Dfu, *ports, quiet);
    if (!verdict.succeeded()) {
        ZMRLogLevel0(QStringLiteral("The DFU sequence on %1 failed; %2 is not restored again")
                         .arg(name, formatEcid(device->ecid())));
        return false;
    }
    return showsInDfu(device);
}

}  // namespace cli
