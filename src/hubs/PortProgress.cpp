#include "hubs/PortProgress.h"

QString portStepName(PortProgress::Step step) {
    switch (step) {
        case PortProgress::Step::Disable:
            return QStringLiteral("disable");
        case PortProgress::Step::PowerMode:
            return QStringLiteral("power mode");
        case PortProgress::Step::Enable:
            return QStringLiteral("enable");
        case PortProgress::Step::Settling:
            return QStringLiteral("settling");
        case PortProgress::Step::DfuMessage:
            return QStringLiteral("DFU message");
        case PortProgress::Step::Reboot:
            return QStringLiteral("reboot");
    }
    return {};
}
