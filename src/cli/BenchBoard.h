#pragma once

#include "unattended/BenchPort.h"
#include "unattended/BenchSummary.h"

#include <QElapsedTimer>
#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>

namespace cli {

// How `auto` shows the bench: on a terminal a live board (a line per port and the day's summary
// under them, redrawn every second and at every change of phase); piped, a plain line per
// change; with --json, one JSON object a line.
class BenchBoard {
  public:
    // Standard output as it is: JSON when asked, the board on a terminal, lines otherwise.
    explicit BenchBoard(bool json);

    void started(const QList<unattended::BenchPort>& ports);
    void portChanged(const unattended::BenchPort& port, double now);
    void note(const QString& text);
    // Once a second: the times in phase and the summary move on.
    void tick(const QList<unattended::BenchPort>& ports, const unattended::BenchSummary& summary,
              double now);
    // The summary; with --json also the restore history of the day (`device`, `serialNumber`,
    // `message`), which the summary's counts agree with.
    void end(const unattended::BenchSummary& summary, const QJsonArray& history, int exitStatus);

    // "1C3B4A01:3  Mac14,2     restoring        [####------]  42%   1m05s"
    static QString portLine(const unattended::BenchPort& port, double now);
    // "restored 3 · failed 1 · needs attention 0 · under way 4 · 12.0 Macs per hour"
    static QString summaryLine(const unattended::BenchSummary& summary);
    // "5s", "1m05s", "2h03m"
    static QString duration(double seconds);

  private:
    enum class Style { Terminal, Plain, Json };

    void emitJson(QJsonObject event) const;
    void redraw(const unattended::BenchSummary& summary, double now);
    void print(const QString& line) const;

    Style style_;
    int width_;
    QElapsedTimer elapsed_;
    QList<unattended::BenchPort> ports_;
    QHash<QString, int> lastTenth_;  // piped: a line per tenth of a restore
    int drawnLines_ = 0;
    unattended::BenchSummary lastSummary_;
};

}  // namespace cli
