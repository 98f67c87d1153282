#include "station/PortVerdict.h"

#include "hubs/AcronamePort.h"
#include "hubs/stem/Types.h"

#include <QJsonArray>

#include <algorithm>

namespace station {

PortVerdict::PortVerdict(QStringList ports, std::optional<PortProgress::Step> message)
    : ports_(std::move(ports)), message_(message) {}

void PortVerdict::record(const PortProgress& event) {
    if (!event.port)
        return;
    PortState& state = states_[event.port->name()];
    if (event.kind == PortProgress::Kind::PortStep) {
        // The pause after a port came back on ends its power cycle.
        if (event.step == PortProgress::Step::Settling &&
            state.lastStep == PortProgress::Step::Enable)
            state.powerCycled = true;
        state.lastStep = event.step;
    }
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

void PortVerdict::recordWasDisabled(const QString& port) {
    wasDisabled_.insert(port);
}

void PortVerdict::recordLeftDisabled(const QString& port) {
    if (!leftDisabled_.contains(port))
        leftDisabled_ << port;
}

void PortVerdict::recordLoss(const QString& reason) {
    loss_ = reason;
}

QStringList PortVerdict::donePorts() const {
    return portsWith(Outcome::Done);
}

QList<PortVerdict::Failure> PortVerdict::failures() const {
    QList<Failure> failed;
    for (const QString& port : portsWith(Outcome::Failed)) {
        const PortState& state = states_.at(port);
        failed.append({port, state.step, answerOf(port, state.result), state.result});
    }
    return failed;
}

QStringList PortVerdict::partlyDonePorts() const {
    return portsWith(Outcome::PartlyDone);
}

QStringList PortVerdict::nothingConnectedPorts() const {
    return portsWith(Outcome::Skipped);
}

bool PortVerdict::succeeded() const {
    return completions_ > 0 && !anyFalseCompletion_ && portsWith(Outcome::Failed).isEmpty() &&
           portsWith(Outcome::PartlyDone).isEmpty() && portsWith(Outcome::NotReached).isEmpty() &&
           unverified_.isEmpty() && leftDisabled_.isEmpty() && !interrupted_;
}

PortVerdict::Outcome PortVerdict::outcomeOf(const QString& port) const {
    const auto found = states_.find(port);
    if (found == states_.end())
        return Outcome::NotReached;
    const PortState& state = found->second;
    // Power-cycled for a message that never went: the Mac is on, in power-delivery mode.
    if (state.outcome == Outcome::NotReached && state.powerCycled && message_)
        return Outcome::PartlyDone;
    return state.outcome;
}

QStringList PortVerdict::portsWith(Outcome outcome) const {
    QStringList matching;
    for (const QString& port : ports_)
        if (outcomeOf(port) == outcome)
            matching << port;
    return matching;
}

QString PortVerdict::answerOf(const QString& port, std::int64_t result) const {
    if (result == stem::aErrConnection && !loss_.isEmpty())
        return loss_;
    return portResultText(result, port.section(':', 0, 0));
}

QString PortVerdict::failure(const QString& port) const {
    const PortState& state = states_.at(port);
    return annotated(
        port, QStringLiteral("%1, %2").arg(portStepName(state.step), answerOf(port, state.result)));
}

QString PortVerdict::partly(const QString& port) const {
    return annotated(port,
                     QStringLiteral("power-cycled, %1 not sent").arg(portStepName(*message_)));
}

QString PortVerdict::annotated(const QString& port, const QString& detail) const {
    if (wasDisabled_.count(port))
        return QStringLiteral("%1 (was disabled; %2)").arg(port, detail);
    return QStringLiteral("%1 (%2)").arg(port, detail);
}

QString PortVerdict::named(const QString& port) const {
    return wasDisabled_.count(port) ? port + QStringLiteral(" (was disabled)") : port;
}

QStringList PortVerdict::namedList(const QStringList& ports) const {
    QStringList names;
    for (const QString& port : ports) names << named(port);
    return names;
}

QStringList PortVerdict::failureDescriptions() const {
    QStringList lines;
    for (const QString& port : portsWith(Outcome::Failed))
        lines << QStringLiteral("failed: ") + failure(port);
    for (const QString& port : portsWith(Outcome::PartlyDone))
        lines << QStringLiteral("partly done: ") + partly(port);
    for (const QString& port : leftDisabled_) lines << QStringLiteral("left disabled: ") + port;
    return lines;
}

QList<std::pair<QStringList, QString>> PortVerdict::unverifiedByReason() const {
    QList<std::pair<QStringList, QString>> groups;
    for (const auto& [port, reason] : unverified_) {
        const auto group = std::find_if(groups.begin(), groups.end(),
                                        [&](const auto& known) { return known.second == reason; });
        if (group == groups.end())
            groups.append({{port}, reason});
        else
            group->first << port;
    }
    return groups;
}

QStringList PortVerdict::unverifiedDescriptions() const {
    QStringList lines;
    for (const auto& [ports, reason] : unverifiedByReason())
        lines << QStringLiteral("%1: %2").arg(ports.join(", "), reason);
    return lines;
}

QString PortVerdict::summary() const {
    const qsizetype total = ports_.size();
    QString text = QStringLiteral("%1 of %2 port%3 done")
                       .arg(portsWith(Outcome::Done).size())
                       .arg(total)
                       .arg(total == 1 ? "" : "s");
    QStringList failed;
    for (const QString& port : portsWith(Outcome::Failed)) failed << failure(port);
    if (!failed.isEmpty())
        text += QStringLiteral("; failed: ") + failed.join(", ");
    QStringList partlyDone;
    for (const QString& port : portsWith(Outcome::PartlyDone)) partlyDone << partly(port);
    if (!partlyDone.isEmpty())
        text += QStringLiteral("; partly done: ") + partlyDone.join(", ");
    if (!leftDisabled_.isEmpty())
        text += QStringLiteral("; left disabled: ") + leftDisabled_.join(", ");
    if (const QStringList skipped = portsWith(Outcome::Skipped); !skipped.isEmpty())
        text += QStringLiteral("; nothing connected: ") + namedList(skipped).join(", ");
    if (const QStringList missed = portsWith(Outcome::NotReached); !missed.isEmpty())
        text += QStringLiteral("; not reached: ") + namedList(missed).join(", ");
    QStringList unverified;
    for (const auto& [ports, reason] : unverifiedByReason())
        unverified << QStringLiteral("%1 (%2)").arg(ports.join(", "), reason);
    if (!unverified.isEmpty())
        text += QStringLiteral("; unverified: ") + unverified.join(", ");
    if (anyFalseCompletion_ && failed.isEmpty() && partlyDone.isEmpty())
        text += QStringLiteral("; the sequence reported a failure");
    if (interrupted_)
        text += QStringLiteral("; stopped by Ctrl-C");
    return text;
}

QJsonObject PortVerdict::json() const {
    QJsonArray failed;
    for (const Failure& failure : failures()) {
        QJsonObject entry{{"port", failure.port},
                          {"step", portStepName(failure.step)},
                          {"reason", failure.reason}};
        if (failure.result >= 0)
            entry.insert("result", qint64(failure.result));
        failed.append(entry);
    }
    QJsonArray partlyDone;
    for (const QString& port : partlyDonePorts())
        partlyDone.append(QJsonObject{
            {"port", port}, {"done", "power-cycled"}, {"notSent", portStepName(*message_)}});
    QJsonArray unverified;
    for (const auto& [port, reason] : unverified_)
        unverified.append(QJsonObject{{"port", port}, {"reason", reason}});
    QStringList wasDisabled;
    for (const QString& port : ports_)
        if (wasDisabled_.count(port))
            wasDisabled << port;
    return {{"event", "verdict"},
            {"unverified", unverified},
            {"ok", succeeded()},
            {"interrupted", interrupted_},
            {"summary", summary()},
            {"done", QJsonArray::fromStringList(portsWith(Outcome::Done))},
            {"failed", failed},
            {"partlyDone", partlyDone},
            {"leftDisabled", QJsonArray::fromStringList(leftDisabled_)},
            {"wasDisabled", QJsonArray::fromStringList(wasDisabled)},
            {"nothingConnected", QJsonArray::fromStringList(nothingConnectedPorts())},
            {"notReached", QJsonArray::fromStringList(portsWith(Outcome::NotReached))}};
}

}  // namespace station
