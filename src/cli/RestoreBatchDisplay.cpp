#include "cli/RestoreBatchDisplay.h"

#include "cli/RestoreProgressBar.h"
#include "configurator/AC2Device.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>

namespace cli {
namespace {

int terminalWidth() {
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return size.ws_col;
    return 80;
}

}  // namespace

RestoreBatchDisplay::RestoreBatchDisplay(QList<Device> devices)
    : RestoreBatchDisplay(std::move(devices), ::isatty(STDOUT_FILENO) == 1, terminalWidth()) {}

RestoreBatchDisplay::RestoreBatchDisplay(QList<Device> devices, bool terminal, int width)
    : terminal_(terminal), width_(width) {
    for (const Device& device : devices) rows_.append({device, QStringLiteral("waiting"), 0});
    redraw();
}

void RestoreBatchDisplay::setDeviceText(std::uint64_t ecid, const QString& text, float progress) {
    for (qsizetype i = 0; i < rows_.size(); ++i) {
        Row& row = rows_[i];
        if (row.device.ecid != ecid)
            continue;
        const float newProgress = progress >= 0 ? progress : row.progress;
        // Piped output gets a line per whole percent, not one per line the tool printed.
        if (row.text == text && qRound(row.progress * 100) == qRound(newProgress * 100))
            return;
        row.text = text;
        row.progress = newProgress;
        if (terminal_)
            redraw();
        else
            std::printf("%s\n", qPrintable(this->row(static_cast<int>(i))));
    }
    std::fflush(stdout);
}

void RestoreBatchDisplay::setMessage(const QString& message) {
    if (message == message_)
        return;
    message_ = message;
    if (terminal_)
        redraw();
    else if (!message.isEmpty())
        std::printf("%s\n", qPrintable(message));
    std::fflush(stdout);
}

void RestoreBatchDisplay::note(const QString& text) {
    erase();
    std::printf("%s\n", qPrintable(text));
    if (terminal_)
        redraw();
    std::fflush(stdout);
}

void RestoreBatchDisplay::finish() {
    drawnLines_ = 0;
    std::fflush(stdout);
}

QString RestoreBatchDisplay::row(int index) const {
    const Row& row = rows_[index];
    return cut(QStringLiteral("%1  %2  %3 %4%  %5")
                   .arg(formatEcid(row.device.ecid), -18)
                   .arg(row.device.serialNumber, -12)
                   .arg(progressBar(row.progress, 20))
                   .arg(qRound(row.progress * 100), 3)
                   .arg(row.text));
}

QString RestoreBatchDisplay::cut(const QString& line) const {
    // One column stays free, so a full-width line never wraps on terminals that wrap early.
    return terminal_ && line.size() >= width_ ? line.left(width_ - 1) : line;
}

void RestoreBatchDisplay::erase() {
    if (!terminal_ || drawnLines_ == 0)
        return;
    std::printf("\033[%dA\r\033[J", drawnLines_);
    drawnLines_ = 0;
}

void RestoreBatchDisplay::redraw() {
    if (!terminal_)
        return;
    erase();
    for (qsizetype i = 0; i < rows_.size(); ++i)
        std::printf("%s\n", qPrintable(row(static_cast<int>(i))));
    std::printf("%s\n", qPrintable(cut(message_)));
    drawnLines_ = static_cast<int>(rows_.size()) + 1;
}

}  // namespace cli
