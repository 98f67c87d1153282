#pragma once

#include <QElapsedTimer>
#include <QList>
#include <QTimer>

#include <utility>

namespace bench {

// The main loop's longest stalls: the widest gaps between the ticks of a 1 ms timer, with when
// each ended. Measures from start() until it goes.
class MainLoopStalls {
  public:
    MainLoopStalls();
    void start();
    // The five longest gaps, longest first, in ns, with their ends in ns since start().
    const QList<std::pair<qint64, qint64>>& longest() const { return longest_; }
    // " 12.3 ms (at 4.56 s)" for each of them.
    void print() const;

  private:
    QElapsedTimer clock_;
    QTimer ticks_;
    qint64 lastTick_ = 0;
    QList<std::pair<qint64, qint64>> longest_;
};

}  // namespace bench
