#include "cli/ModeVerification.h"

#include "core/Clock.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"
#include "usb/UsbRegistry.h"

#include <algorithm>

namespace cli {

void verifyModes(const CliContext& context, station::PortVerdict& verdict, station::MacMode expected,
                 ProgressDisplay& display) {
    const QStringList ports = verdict.donePorts();
    if (ports.isEmpty())
        return;
    const double timeout = core::Settings::shared().boundedNumber(core::keys::verifyTimeoutSeconds);
    const station::MacModeCheck check(usb::UsbRegistry::shared());
    std::optional<std::map<QString, station::MacMode>> modes;
    qsizetype shown = -1;
    for (unsigned waited = 0;; ++waited) {
        modes = check.modes(ports);
        if (!modes)
            break;
        const auto confirmed = std::count_if(modes->begin(), modes->end(), [&](const auto& entry) {
            return entry.second == expected;
        });
        if (confirmed != shown)
            display.verifying(int(confirmed), int(ports.size()), station::macModeText(expected));
        shown = confirmed;
        if (confirmed == ports.size() || waited >= timeout)
            break;
        core::Clock::system().sleepSeconds(1);
    }
    if (!modes) {
        const QString why = context.simulatorProblem()
                                ? QStringLiteral("lost the simulator")
                                : QStringLiteral("the USB registry could not be read");
        for (const QString& port : ports) verdict.recordUnverified(port, why);
        return;
    }
    const QString after = QStringLiteral("after %1 s").arg(timeout);
    for (const QString& port : ports) {
        const station::MacMode mode = modes->at(port);
        if (mode == station::MacMode::HubAbsent)
            verdict.recordUnverified(
                port, QStringLiteral("hub %1 went away").arg(port.section(':', 0, 0)));
        else if (mode == station::MacMode::Absent)
            verdict.recordUnverified(port, QStringLiteral("no Mac on USB ") + after);
        else if (mode != expected)
            verdict.recordUnverified(
                port, QStringLiteral("Mac still %1 %2").arg(station::macModeText(mode), after));
    }
}

}  // namespace cli
