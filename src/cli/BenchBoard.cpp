#include "cli/BenchBoard.h"

#include "cli/TerminalWidth.h"
#include "configurator/AC2Device.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace cli {
namespace {

QString bar(double progress) {
    const int filled = std::clamp(int(std::lround(progress * 10)), 0, 10);
    return QStringLiteral("[%1%2] %3%")
        .arg(QString(filled, u'#'), QString(10 - filled, u'-'))
        .arg(int(std::lround(progress * 100)), 3);
}

QJsonObject portJson(const unattended::BenchPort& port) {
    QJsonObject json{
        {"event", "port"}, {"port", port.name}, {"state", unattended::portPhaseKey(port.phase)}};
    if (!port.model.isEmpty())
        json.insert("model", port.model);
    if (port.ecid != 0)
        json.insert("ecid", formatEcid(port.ecid));
    if (!port.serialNumber.isEmpty())
        json.insert("serialNumber", port.serialNumber);
    if (port.progress >= 0)
        json.insert("progress", std::round(port.progress * 1000) / 1000);
    if (!port.step.isEmpty())
        json.insert("step", port.step);
    if (!port.reason.isEmpty())
        json.insert("reason", port.reason);
    if (port.dfuAttempts > 0)
        json.insert("dfuAttempts", port.dfuAttempts);
    return json;
}

}  // namespace

BenchBoard::BenchBoard(bool json)
    : style_(json                           ? Style::Json
             : ::isatty(STDOUT_FILENO) == 1 ? Style::Terminal
                                            : Style::Plain),
      width_(terminalWidth()) {
    elapsed_.start();
}

QString BenchBoard::duration(double seconds) {
    const auto whole = static_cast<qint64>(std::max(0.0, seconds));
    if (whole < 60)
        return QStringLiteral("%1s").arg(whole);
    if (whole < 3600)
        return QStringLiteral("%1m%2s").arg(whole / 60).arg(whole % 60, 2, 10, QLatin1Char('0'));
    return QStringLiteral("%1h%2m").arg(whole / 3600).arg(whole / 60 % 60, 2, 10, QLatin1Char('0'));
}

QString BenchBoard::portLine(const unattended::BenchPort& port, double now) {
    QString state = unattended::portPhaseText(port.phase);
    if (port.phase == unattended::PortPhase::restoring && port.progress >= 0)
        state += QStringLiteral("  ") + bar(port.progress);
    else if (!port.reason.isEmpty())
        state += QStringLiteral(" (%1)").arg(port.reason);
    else if (port.phase == unattended::PortPhase::dfuSequence && port.dfuAttempts > 1)
        state += QStringLiteral(" (attempt %1)").arg(port.dfuAttempts);
    return QStringLiteral("%1  %2  %3  %4")
        .arg(port.name, -11)
        .arg(port.model.isEmpty() ? QStringLiteral("-") : port.model, -10)
        .arg(state, -34)
        .arg(duration(now - port.since), 6);
}

QString BenchBoard::summaryLine(const unattended::BenchSummary& summary) {
    return QStringLiteral(
               "restored %1 · failed %2 · needs attention %3 · cancelled %4 · under "
               "way %5 · %6 Macs per hour")
        .arg(summary.restored)
        .arg(summary.failed)
        .arg(summary.needsAttention)
        .arg(summary.cancelled)
        .arg(summary.underWay)
        .arg(summary.macsPerHour(), 0, 'f', 1);
}

void BenchBoard::started(const QList<unattended::BenchPort>& ports) {
    ports_ = ports;
    QStringList names;
    for (const auto& port : ports) names << port.name;
    if (style_ == Style::Json)
        emitJson({{"event", "start"}, {"ports", QJsonArray::fromStringList(names)}});
    else
        print(QStringLiteral("Watching %1 ports: %2. Plug Macs in; Ctrl-C stops.")
                  .arg(ports.size())
                  .arg(names.join(u' ')));
}

void BenchBoard::portChanged(const unattended::BenchPort& port, double now) {
    for (auto& known : ports_)
        if (known.name == port.name) {
            const bool newPhase = known.phase != port.phase;
            known = port;
            if (style_ == Style::Terminal && newPhase)
                redraw(lastSummary_, now);
            if (style_ == Style::Terminal)
                return;
            // A line per phase, and per tenth of a restore.
            const int tenth = port.progress >= 0 ? int(port.progress * 10) : -1;
            if (!newPhase && lastTenth_.value(port.name, -1) == tenth)
                return;
            lastTenth_[port.name] = tenth;
            if (style_ == Style::Json)
                emitJson(portJson(port));
            else
                print(portLine(port, now).simplified());
            return;
        }
}

void BenchBoard::note(const QString& text) {
    if (style_ == Style::Json) {
        emitJson({{"event", "note"}, {"text", text}});
        return;
    }
    if (style_ == Style::Terminal && drawnLines_ > 0) {
        // Above the board, which is drawn again under it.
        std::printf("\x1b[%dA\x1b[J", drawnLines_);
        drawnLines_ = 0;
    }
    print(text);
}

void BenchBoard::tick(const QList<unattended::BenchPort>& ports,
                      const unattended::BenchSummary& summary, double now) {
    ports_ = ports;
    lastSummary_ = summary;
    if (style_ == Style::Terminal)
        redraw(summary, now);
}

void BenchBoard::redraw(const unattended::BenchSummary& summary, double now) {
    QString text;
    if (drawnLines_ > 0)
        text += QStringLiteral("\x1b[%1A").arg(drawnLines_);
    QStringList lines;
    for (const auto& port : ports_) lines << portLine(port, now);
    lines << summaryLine(summary);
    for (const QString& line : lines)
        text += QStringLiteral("\x1b[2K") + line.left(std::max(20, width_ - 1)) + u'\n';
    drawnLines_ = int(lines.size());
    std::fputs(text.toUtf8().constData(), stdout);
    std::fflush(stdout);
}

void BenchBoard::end(const unattended::BenchSummary& summary, const QJsonArray& history,
                     int exitStatus) {
    if (style_ == Style::Json) {
        emitJson({{"event", "summary"},
                  {"done", summary.done},
                  {"restored", summary.restored},
                  {"failed", summary.failed},
                  {"needsAttention", summary.needsAttention},
                  {"cancelled", summary.cancelled},
                  {"underWay", summary.underWay},
                  {"macsPerHour", std::round(summary.macsPerHour() * 10) / 10},
                  {"history", history},
                  {"status", exitStatus}});
    } else {
        print(QStringLiteral("auto: ") + summaryLine(summary));
    }
    std::fflush(stdout);
}

void BenchBoard::emitJson(QJsonObject event) const {
    event.insert("time", std::round(double(elapsed_.elapsed()) / 10.0) / 100.0);
    std::printf("%s\n", QJsonDocument(event).toJson(QJsonDocument::Compact).constData());
    std::fflush(stdout);
}

void BenchBoard::print(const QString& line) const {
    std::printf("%s\n", line.toUtf8().constData());
    std::fflush(stdout);
}

}  // namespace cli
