#include "cli/RestoreProgressBar.h"

#include <unistd.h>

#include <cstdio>

namespace cli {
namespace {
constexpr int barWidth = 30;
}

QString progressBar(float progress, int width) {
    const int filled = qBound(0, qRound(progress * width), width);
    return QStringLiteral("[%1%2]").arg(QString(filled, '#'), QString(width - filled, '-'));
}

RestoreProgressBar::RestoreProgressBar(QString label)
    : label_(std::move(label)), terminal_(::isatty(STDOUT_FILENO) == 1) {}

void RestoreProgressBar::update(const QString& step, float progress) {
    if (progress >= 0)
        lastProgress_ = progress;
    const QString line = QStringLiteral("%1 %2 %3% %4")
                             .arg(label_, progressBar(lastProgress_, barWidth))
                             .arg(qRound(lastProgress_ * 100), 3)
                             .arg(step);
    if (line == lastLine_)
        return;
    lastLine_ = line;
    if (terminal_) {
        clearLine();
        std::printf("%s", qPrintable(line));
        drawn_ = true;
    } else {
        std::printf("%s\n", qPrintable(line));
    }
    std::fflush(stdout);
}

void RestoreProgressBar::note(const QString& text) {
    if (text.isEmpty())
        return;
    clearLine();
    std::printf("%s\n", qPrintable(text));
    if (terminal_ && !lastLine_.isEmpty()) {
        std::printf("%s", qPrintable(lastLine_));
        drawn_ = true;
    }
    std::fflush(stdout);
}

void RestoreProgressBar::finish() {
    if (drawn_)
        std::printf("\n");
    drawn_ = false;
    std::fflush(stdout);
}

void RestoreProgressBar::clearLine() {
    if (drawn_)
        std::printf("\r\033[2K");
    drawn_ = false;
}

}  // namespace cli
