#include "cli/PortVerdict.h"

#include "hubs/AcronamePort.h"

#include <QJsonArray>

namespace cli {

PortVerdict::PortVerdict(QStringList ports) : ports_(std::move(ports)) {}

void PortVerdict::record(const PortProgress& event) {
    if (!event.port)
        return;
    PortState& state = states_[event.port->name()];
    // A failure stays on record whatever comes after it; work done outranks an earlier skip.
    if (state.outcome == Outcome::Failed)
        return;
    if (event.kind == PortProgress::Kind::PortResult) {
        state.outcome = event.succeeded ? Outcome::Done : Outcome::Failed;
        state.step = event.step;
        state.result = event.result;
    } else if (event.kind == PortProgress::Kind::PortSkipped &&
               state.outcome == Outcome::NotReached) {
        state.outcome = Outcome::Skipped;
    }
}

void PortVerdict::recordCompletion(bool value) {
    ++completions_;
    anyFalseCompletion_ = anyFalseCompletion_ || !value;
}

void PortVerdict::recordUnverified(const QString& port, const QString& reason) {
    unverified_.append({port, reason});
}

QStringList PortVerdict::donePorts() const {
    return portsWith(Outcome::Done);
}

bool PortVerdict::succeeded() const {
    return completions_ > 0 && !anyFalseCompletion_ && portsWith(Outcome::Failed).isEmpty() &&
           portsWith(Outcome::NotReached).isEmpty() && unverified_.isEmpty();
}

QStringList PortVerdict::portsWith(Outcome outcome) const {
    QStringList matching;
    for (const QString& port : ports_) {
        const auto found = states_.find(port);
        const Outcome actual = found == states_.end() ? Outcome::NotReached : found->second.outcome;
        if (actual == outcome)
            matching << port;
    }
    return matching;
}

QString PortVerdict::failure(const QString& port) const {
    const PortState& state = states_.at(port);
    const QString answer = state.result >= 0 ? QStringLiteral("result %1").arg(state.result)
                                             : QStringLiteral("no answer from the hub");
    return QStringLiteral("%1 (%2, %3)").arg(port, portStepName(state.step), answer);
}

QStringList PortVerdict::failureDescriptions() const {
    QStringList lines;
    for (const QString& port : portsWith(Outcome::Failed)) lines << failure(port);
    return lines;
}

QStringList PortVerdict::unverifiedDescriptions() const {
    QStringList lines;
    for (const auto& [port, reason] : unverified_)
        lines << QStringLiteral("%1: %2").arg(port, reason);
    return lines;
}

QString PortVerdict::summary() const {
    const qsizetype total = ports_.size();
    QString text = QStringLiteral("%1 of %2 port%3 done")
                       .arg(portsWith(Outcome::Done).size())
                       .arg(total)
                       .arg(total == 1 ? "" : "s");
    if (const QStringList failed = failureDescriptions(); !failed.isEmpty())
        text += QStringLiteral("; failed: ") + failed.join(", ");
    if (const QStringList skipped = portsWith(Outcome::Skipped); !skipped.isEmpty())
        text += QStringLiteral("; nothing connected: ") + skipped.join(", ");
    if (const QStringList missed = portsWith(Outcome::NotReached); !missed.isEmpty())
        text += QStringLiteral("; not reached: ") + missed.join(", ");
    QStringList unverified;
    for (const auto& [port, reason] : unverified_)
        unverified << QStringLiteral("%1 (%2)").arg(port, reason);
    if (!unverified.isEmpty())
        text += QStringLiteral("; unverified: ") + unverified.join(", ");
    if (anyFalseCompletion_ && failureDescriptions().isEmpty())
        text += QStringLiteral("; the sequence reported a failure");
    return text;
}

QJsonObject PortVerdict::json() const {
    QJsonArray failed;
    for (const QString& port : portsWith(Outcome::Failed)) {
        const PortState& state = states_.at(port);
        QJsonObject entry{{"port", port}, {"step", portStepName(state.step)}};
        if (state.result >= 0)
            entry.insert("result", qint64(state.result));
        failed.append(entry);
    }
    QJsonArray unverified;
    for (const auto& [port, reason] : unverified_)
        unverified.append(QJsonObject{{"port", port}, {"reason", reason}});
    return {{"event", "verdict"},
            {"unverified", unverified},
            {"ok", succeeded()},
            {"summary", summary()},
            {"done", QJsonArray::fromStringList(portsWith(Outcome::Done))},
            {"failed", failed},
            {"nothingConnected", QJsonArray::fromStringList(portsWith(Outcome::Skipped))},
            {"notReached", QJsonArray::fromStringList(portsWith(Outcome::NotReached))}};
}

}  // namespace cli
