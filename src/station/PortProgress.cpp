#include "station/PortProgress.h"

#include "hubs/stem/Types.h"

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

QString portResultText(std::int64_t result, const QString& hubName) {
    if (result == stem::aErrConnection)
        return QStringLiteral("hub %1 went away").arg(hubName);
    return result >= 0 ? QStringLiteral("result %1").arg(result)
                       : QStringLiteral("no answer from the hub");
}
