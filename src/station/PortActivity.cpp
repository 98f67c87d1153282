#include "station/PortActivity.h"

#include "hubs/AcronamePort.h"

#include <algorithm>

PortActivity::Event PortActivity::describe(const PortProgress& progress) {
    return {progress.kind,     progress.step,    progress.port ? progress.port->name() : QString(),
            progress.position, progress.count,   progress.seconds,
            progress.succeeded};
}

void PortActivity::record(const Event& event, qint64 now) {
    if (event.count > 0)
        count_ = event.count;
    if (event.kind == PortProgress::Kind::PortResult && event.succeeded)
        ++done_;
    if (event.kind == PortProgress::Kind::PortResult || event.kind == PortProgress::Kind::PortSkipped)
        return;
    current_ = event;
    currentSince_ = now;
    if (event.kind == PortProgress::Kind::PassPause) {
        for (Lane& lane : lanes_) lane.step.reset();
        return;
    }
    auto lane = std::find_if(lanes_.begin(), lanes_.end(),
                             [&](const Lane& known) { return known.hub == event.hub(); });
    if (lane == lanes_.end()) {
        // Hubs keep the order of their ports in the list, whichever lane spoke first.
        const auto later = std::find_if(lanes_.begin(), lanes_.end(), [&](const Lane& known) {
            return known.firstPosition > event.position;
        });
        lane = lanes_.insert(later, {event.hub(), event.position, {}, 0});
    }
    lane->step = event;
    lane->since = now;
}

void PortActivity::clearStep() {
    current_.reset();
}

bool PortActivity::isPaused() const {
    return current_ && current_->kind == PortProgress::Kind::PassPause;
}

QString PortActivity::stepText(qint64 now, bool withPlace) const {
    return current_ ? stepText(*current_, currentSince_, now, withPlace) : QString();
}

QStringList PortActivity::hubLines(qint64 now) const {
    QStringList lines;
    for (const Lane& lane : lanes_)
        lines << QStringLiteral("%1 | %2").arg(
                     lane.hub, lane.step ? stepText(*lane.step, lane.since, now, true)
                                         : QStringLiteral("waiting"));
    return lines;
}

QString PortActivity::stepText(const Event& step, qint64 since, qint64 now, bool withPlace) {
    const auto remaining = [&] {
        return std::max<qint64>(0, qint64(step.seconds) - (now - since) / 1000);
    };
    if (step.kind == PortProgress::Kind::PassPause)
        return QStringLiteral("all ports · pause %1 s").arg(remaining());
    QString text = withPlace ? QStringLiteral("port %1 of %2 · %3")
                                   .arg(step.position)
                                   .arg(step.count)
                                   .arg(step.port)
                             : step.port;
    text += QStringLiteral(" · ") + portStepName(step.step);
    if (step.step == PortProgress::Step::Settling)
        text += QStringLiteral(" %1 s").arg(remaining());
    return text;
}
