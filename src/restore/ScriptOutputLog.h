#pragma once

#include <QString>

#include <functional>

namespace restore {

// What one run of an event script printed, on its way to the log: its lines up to a budget, then
// only their size. A script that prints megabytes must not fill the log or keep the main loop
// busy logging while a batch runs.
class ScriptOutputLog {
  public:
    static constexpr qint64 budgetBytes = 64 * 1024;
    using LogLine = std::function<void(const QString&)>;

    explicit ScriptOutputLog(LogLine log);

    // One chunk of standard output ("Message: ") or standard error ("ErrorMessage: ").
    void add(const QString& prefix, const QString& chunk);
    // After the script's end: one line telling how much was left out, when anything was.
    void finish();

    qint64 keptBytes() const { return kept_; }
    qint64 droppedBytes() const { return dropped_; }

  private:
    LogLine log_;
    qint64 kept_ = 0;
    qint64 dropped_ = 0;
    bool full_ = false;  // once a line did not fit, nothing after it is logged either
};

}  // namespace restore
