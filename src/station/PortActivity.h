#pragma once

#include "station/PortProgress.h"

#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

// What a port sequence is doing now, gathered from its observer's events: how many ports are
// done of how many, the step under way and since when, and the step each hub's lane is at. It
// keeps the ports' names, not the ports, so events may cross threads and outlive the sequence.
// Times are milliseconds on any clock that does not go back.
class PortActivity {
  public:
    // An observer's event, told on the sequence's thread, in a form that may travel.
    struct Event {
        PortProgress::Kind kind = PortProgress::Kind::PortStep;
        PortProgress::Step step = PortProgress::Step::Disable;
        QString port;  // "1C3B4A01:3"; empty for a pause over all ports
        int position = 0;
        int count = 0;
        unsigned seconds = 0;
        bool succeeded = false;

        QString hub() const { return port.section(':', 0, 0); }
    };
    static Event describe(const PortProgress& progress);

    void record(const Event& event, qint64 now);
    // The step under way is over and nothing has begun (the work moved on to something else).
    void clearStep();

    int done() const { return done_; }
    int count() const { return count_; }
    bool isPaused() const;

    // "port 3 of 10 · 1C3B4A01:3 · settling 2 s" (or without the place), "all ports · pause 5 s";
    // empty before the first step.
    QString stepText(qint64 now, bool withPlace) const;
    // One "1C3B4A01 | port 1 of 6 · 1C3B4A01:1 · disable" a hub, hubs in the order of their
    // ports in the sequence's list; "waiting" for a hub whose lane is between steps.
    QStringList hubLines(qint64 now) const;

  private:
    struct Lane {
        QString hub;
        int firstPosition = 0;
        std::optional<Event> step;
        qint64 since = 0;
    };
    static QString stepText(const Event& step, qint64 since, qint64 now, bool withPlace);

    std::optional<Event> current_;
    qint64 currentSince_ = 0;
    std::vector<Lane> lanes_;
    int done_ = 0;
    int count_ = 0;
};
