#pragma once

#include <QElapsedTimer>
#include <QHash>
#include <QObject>

#include <functional>
#include <map>

class QTimer;

namespace sim {

// Simulated time. Every delay of the station model goes through here, so the executable can run
// it faster than real time and tests can step it without waiting.
class Scheduler {
  public:
    using Token = quint64;
    virtual ~Scheduler() = default;

    // Runs action once, after the given simulated seconds. 0 is never a valid token.
    virtual Token after(double seconds, std::function<void()> action) = 0;
    virtual void cancel(Token token) = 0;
    // Simulated seconds since the station started.
    virtual double now() const = 0;
};

// Driven by hand: advance() runs what falls due, in time order, including actions scheduled by
// the actions it runs.
class ManualScheduler final : public Scheduler {
  public:
    Token after(double seconds, std::function<void()> action) override;
    void cancel(Token token) override;
    double now() const override { return now_; }

    void advance(double seconds);
    std::size_t pending() const { return queue_.size(); }

  private:
    struct Key {
        double due;
        Token token;
        bool operator<(const Key& other) const {
            return due != other.due ? due < other.due : token < other.token;
        }
    };
    double now_ = 0.0;
    Token nextToken_ = 1;
    std::map<Key, std::function<void()>> queue_;
};

// Real timers on the owning thread's event loop, with every delay divided by the speed.
class TimerScheduler final : public QObject, public Scheduler {
  public:
    explicit TimerScheduler(double speed, QObject* parent = nullptr);

    Token after(double seconds, std::function<void()> action) override;
    void cancel(Token token) override;
    double now() const override;

  private:
    double speed_;
    QElapsedTimer started_;
    Token nextToken_ = 1;
    QHash<Token, QTimer*> timers_;
};

}  // namespace sim
