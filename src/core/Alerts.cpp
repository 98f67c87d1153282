#include "core/Alerts.h"

#include <atomic>
#include <cstdio>

namespace core {
namespace {

TerminalAlerts& terminalAlerts() {
    static TerminalAlerts alerts;
    return alerts;
}

std::atomic<Alerts*> installedAlerts{nullptr};

}  // namespace

Alerts& Alerts::shared() {
    Alerts* installed = installedAlerts.load();
    return installed ? *installed : terminalAlerts();
}

void Alerts::install(Alerts* alerts) { installedAlerts.store(alerts); }

int TerminalAlerts::show(const Alert& alert) {
    std::fprintf(stderr, "%s: %s\n", qPrintable(alert.title), qPrintable(alert.message));
    return 0;
}

}  // namespace core
