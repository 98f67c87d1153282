#include "cli/ProgressDisplay.h"

#include "cli/TerminalWidth.h"
#include "station/PortVerdict.h"

#include "hubs/AcronamePort.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace cli {
namespace {

constexpr int kBarWidth = 10;
constexpr int kShortestHeadline = 12;
const QString kRed = QStringLiteral("\033[31m");
const QString kPlain = QStringLiteral("\033[0m");

QString resultText(const PortProgress& event) {
    if (event.kind == PortProgress::Kind::PortSkipped)
        return QStringLiteral("%1 nothing connected").arg(event.port->name());
    if (event.succeeded)
        return QStringLiteral("%1 done").arg(event.port->name());
    return QStringLiteral("%1 failed: %2, %3")
        .arg(event.port->name(), portStepName(event.step),
             portResultText(event.result, event.port->name().section(':', 0, 0)));
}

QString kindName(PortProgress::Kind kind) {
    switch (kind) {
        case PortProgress::Kind::PortStep:
            return QStringLiteral("step");
        case PortProgress::Kind::PassPause:
            return QStringLiteral("pause");
        case PortProgress::Kind::PortResult:
            return QStringLiteral("result");
        case PortProgress::Kind::PortSkipped:
            return QStringLiteral("skipped");
    }
    return {};
}

QJsonObject portJson(const PortProgress& event) {
    QJsonObject object{{"event", kindName(event.kind)}};
    if (event.port) {
        object.insert("port", event.port->name());
        object.insert("position", event.position);
        object.insert("count", event.count);
    }
    switch (event.kind) {
        case PortProgress::Kind::PortStep:
            object.insert("step", portStepName(event.step));
            if (event.step == PortProgress::Step::Settling)
                object.insert("seconds", qint64(event.seconds));
            break;
        case PortProgress::Kind::PassPause:
            object.insert("seconds", qint64(event.seconds));
            break;
        case PortProgress::Kind::PortResult:
            object.insert("ok", event.succeeded);
            if (!event.succeeded) {
                object.insert("step", portStepName(event.step));
                if (event.result >= 0)
                    object.insert("result", qint64(event.result));
            }
            break;
        case PortProgress::Kind::PortSkipped:
            break;
    }
    return object;
}

}  // namespace

ProgressDisplay::ProgressDisplay(Options options, Write write, Elapsed elapsed)
    : options_(options), write_(std::move(write)), elapsed_(std::move(elapsed)) {}

ProgressDisplay ProgressDisplay::forStandardOutput(bool json, bool linePerHub) {
    Options options;
    options.linePerHub = linePerHub;
    if (json)
        options.style = Style::Json;
    else if (isatty(STDOUT_FILENO))
        options.style = Style::Terminal;
    options.width = terminalWidth();
    options.color = options.style == Style::Terminal && !std::getenv("NO_COLOR");
    auto timer = std::make_shared<QElapsedTimer>();
    timer->start();
    return ProgressDisplay(
        options,
        [](const QByteArray& bytes) {
            std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
            std::fflush(stdout);
        },
        [timer] { return timer->elapsed(); });
}

void ProgressDisplay::emitJson(QJsonObject object) {
    object.insert("time", std::round(double(elapsed_()) / 10.0) / 100.0);
    write_(QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n');
}

void ProgressDisplay::emitPlain(const QString& line) {
    write_(line.toUtf8() + '\n');
}

void ProgressDisplay::headline(const QString& text) {
    std::lock_guard lock(mutex_);
    headline_ = text;
    if (options_.style == Style::Json)
        emitJson({{"event", "update"}, {"text", text}});
    else if (options_.style == Style::Plain)
        emitPlain(text);
    else
        redraw();
}

void ProgressDisplay::port(const PortProgress& event) {
    std::lock_guard lock(mutex_);
    activity_.record(PortActivity::describe(event), elapsed_());
    if (options_.style == Style::Json) {
        emitJson(portJson(event));
        return;
    }
    const bool isResult = event.kind == PortProgress::Kind::PortResult ||
                          event.kind == PortProgress::Kind::PortSkipped;
    if (options_.style == Style::Plain) {
        emitPlain(QStringLiteral("  ") +
                  (isResult ? resultText(event) : activity_.stepText(elapsed_(), true)));
        return;
    }
    // On the live line only failures stay on screen; successes show in the bar.
    if (event.kind == PortProgress::Kind::PortResult && !event.succeeded)
        printFailure(resultText(event));
    redraw();
}

void ProgressDisplay::completion(bool value) {
    std::lock_guard lock(mutex_);
    if (options_.style == Style::Json)
        emitJson({{"event", "completion"}, {"value", value}});
}

void ProgressDisplay::verifying(int confirmed, int count, const QString& mode) {
    std::lock_guard lock(mutex_);
    if (options_.style == Style::Json) {
        emitJson({{"event", "verify"}, {"confirmed", confirmed}, {"count", count}, {"mode", mode}});
        return;
    }
    const QString text =
        QStringLiteral("Checking the Macs: %1 of %2 %3").arg(confirmed).arg(count).arg(mode);
    if (options_.style == Style::Plain) {
        emitPlain(text);
        return;
    }
    headline_ = text;
    activity_.clearStep();
    redraw();
}

void ProgressDisplay::tick() {
    std::lock_guard lock(mutex_);
    if (options_.style == Style::Terminal)
        redraw();
}

void ProgressDisplay::finish(const station::PortVerdict& verdict) {
    std::lock_guard lock(mutex_);
    if (options_.style == Style::Json)
        emitJson(verdict.json());
    if (liveLinesDrawn_ > 0) {
        // The hubs' lines have nothing more to say once the work is over.
        eraseLiveArea();
        write_((liveLine() + '\n').toUtf8());
    }
    liveLinesDrawn_ = 0;
}

QString ProgressDisplay::stepText(bool withPlace) const {
    // With a line per hub the hubs' lines name the ports; the live line keeps the pauses.
    if (options_.linePerHub && !activity_.isPaused())
        return {};
    return activity_.stepText(elapsed_(), withPlace);
}

QStringList ProgressDisplay::hubLines() const {
    QStringList lines;
    if (!options_.linePerHub)
        return lines;
    for (const QString& line : activity_.hubLines(elapsed_()))
        lines << (QStringLiteral("  ") + line).left(options_.width - 1);
    return lines;
}

QString ProgressDisplay::bar() const {
    const int done = activity_.done();
    const int count = activity_.count();
    if (count <= 0)
        return {};
    const int filled = done * kBarWidth / count;
    return QStringLiteral("[%1%2] %3/%4")
        .arg(QString(filled, '#'), QString(kBarWidth - filled, '-'))
        .arg(done)
        .arg(count);
}

// The details after the headline, from the fullest to the barest: the bar goes first on a
// narrow terminal, then the port's place in the list, so the port being worked stays in view.
QStringList ProgressDisplay::detailChoices() const {
    const QString full = stepText(true);
    const QString bare = stepText(false);
    const QString withBar =
        bar().isEmpty() || full.isEmpty() ? bar() + full : bar() + QStringLiteral(" · ") + full;
    QStringList choices;
    for (const QString& detail : {withBar, full, bare})
        choices << (detail.isEmpty() ? QString() : QStringLiteral(" | ") + detail);
    return choices;
}

// The headline keeps a few letters while the details give way; on a very narrow terminal it
// shrinks further, and whatever still does not fit is cut.
QString ProgressDisplay::liveLine() const {
    const QString elapsed = QStringLiteral("[%1s] ").arg(elapsed_() / 1000, 3);
    const int width = options_.width - 1;
    const QStringList choices = detailChoices();
    QString detail = choices.last();
    for (const QString& choice : choices) {
        if (elapsed.size() + std::min<qsizetype>(kShortestHeadline, headline_.size()) +
                choice.size() <=
            width) {
            detail = choice;
            break;
        }
    }
    const qsizetype room = width - elapsed.size() - detail.size();
    QString headline = headline_;
    if (headline.size() > room)
        headline = room > 1 ? headline.left(room - 1) + QStringLiteral("…") : QString();
    return (elapsed + headline + detail).left(width);
}

// Back to the start of the live line, the lines below it cleared.
void ProgressDisplay::eraseLiveArea() {
    QString erase = QStringLiteral("\r");
    if (liveLinesDrawn_ > 1)
        erase += QStringLiteral("\033[%1A").arg(liveLinesDrawn_ - 1);
    write_((erase + QStringLiteral("\033[J")).toUtf8());
}

void ProgressDisplay::redraw() {
    const QStringList lines = QStringList{liveLine()} + hubLines();
    eraseLiveArea();
    write_(lines.join('\n').toUtf8());
    liveLinesDrawn_ = int(lines.size());
}

void ProgressDisplay::printFailure(const QString& line) {
    const bool colored = options_.color;
    eraseLiveArea();
    write_(QStringLiteral("%1%2%3\n")
               .arg(colored ? kRed : QString(), line.left(options_.width - 1),
                    colored ? kPlain : QString())
               .toUtf8());
    liveLinesDrawn_ = 0;
}

}  // namespace cli
