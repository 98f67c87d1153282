#pragma once

#include <QString>

namespace cli {

// "[#####-----]" with `width` cells for a progress from 0 to 1.
QString progressBar(float progress, int width);

// One device's restore progress on the terminal: a bar redrawn in place on a terminal, one line
// per change when the output goes to a file or a pipe.
class RestoreProgressBar {
  public:
    explicit RestoreProgressBar(QString label);
    // progress < 0 means the tool named a step without a value.
    void update(const QString& step, float progress);
    // A line of its own (tool messages, cancelling), without losing the bar.
    void note(const QString& text);
    void finish();

  private:
    void clearLine();

    QString label_;
    bool terminal_;
    bool drawn_ = false;
    QString lastLine_;
    float lastProgress_ = 0;
};

}  // namespace cli
