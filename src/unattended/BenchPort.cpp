#include "unattended/BenchPort.h"

namespace unattended {

QString portPhaseText(PortPhase phase) {
    switch (phase) {
        case PortPhase::empty:
            return QStringLiteral("empty");
        case PortPhase::dfuSequence:
            return QStringLiteral("DFU");
        case PortPhase::waitingForDFU:
            return QStringLiteral("waiting for DFU");
        case PortPhase::queued:
            return QStringLiteral("queued");
        case PortPhase::restoring:
            return QStringLiteral("restoring");
        case PortPhase::recovery:
            return QStringLiteral("recovery");
        case PortPhase::done:
            return QStringLiteral("done");
        case PortPhase::failed:
            return QStringLiteral("failed");
        case PortPhase::needsAttention:
            return QStringLiteral("needs attention");
    }
    return {};
}

QString portPhaseKey(PortPhase phase) {
    return portPhaseText(phase).toLower().replace(u' ', u'_');
}

QString portPhaseTitle(PortPhase phase) {
    if (phase == PortPhase::dfuSequence)
        return QStringLiteral("Sending DFU");
    QString text = portPhaseText(phase);
    text[0] = text[0].toUpper();
    return text;
}

bool isCycleEnd(PortPhase phase) {
    return phase == PortPhase::done || phase == PortPhase::failed ||
           phase == PortPhase::needsAttention;
}

}  // namespace unattended
