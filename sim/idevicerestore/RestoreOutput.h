#pragma once

#include <QFile>
#include <QString>
#include <QStringList>

namespace simidevicerestore {

// Everything the tool prints, as the real tool prints it: each line flushed at once (its reader
// is a pipe), errors in the style of the build it plays, progress as lines or as bars redrawn
// with "\r", and every line also in the log file with its time.
class RestoreOutput {
  public:
    // Older builds print errors on stderr after "ERROR: "; newer ones bare on stdout.
    void setOldErrorStyle(bool old) { oldErrorStyle_ = old; }
    void setPlainProgress(bool plain) { plainProgress_ = plain; }
    // Lines printed before the log's name was known are written to it first. A symbolic link is
    // not followed: such a log is not written.
    void openLog(const QString& path);
    bool logOpen() const { return log_.isOpen(); }

    void line(const QString& text);
    void error(const QString& text);
    // The "progress: <step> <fraction>" line with plain progress; otherwise the step's bar, for
    // the steps the real tool draws one for.
    void stepProgress(int step, const QString& barLabel, double fraction);
    // "<label>: <percent>" with plain progress; otherwise the bar.
    void labelledProgress(const QString& label, double percent);

  private:
    void bar(const QString& label, double percent);
    void log(const QString& text, bool isError);
    void writeLogLine(const QString& stamped);

    bool oldErrorStyle_ = false;
    bool plainProgress_ = false;
    QFile log_;
    QStringList pendingLog_;
};

}  // namespace simidevicerestore
