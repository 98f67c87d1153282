#include "cli/RestoreBatchDisplay.h"

#include "cli/TerminalWidth.h"
#include "cli/RestoreProgressBar.h"
#include "configurator/AC2Device.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <QJsonDocument>

#include <cmath>
#include <cstdio>

namespace cli {
namespace {

// Wide enough for "Mac mini (M2 Pro, 2023)"; longer names end in an ellipsis.
constexpr int modelWidth = 24;

QString shortened(const QString& text, int width) {
    return text.size() <= width ? text : text.left(width - 1) + QChar(0x2026);
}

}  // namespace

RestoreBatchDisplay::RestoreBatchDisplay(QList<Device> devices, bool json)
    : RestoreBatchDisplay(std::move(devices),
                          json                             ? Style::Json
                          : ::isatty(STDOUT_FILENO) == 1 ? Style::Terminal
                                                         : Style::Plain,
                          terminalWidth()) {}

RestoreBatchDisplay::RestoreBatchDisplay(QList<Device> devices, Style style, int width)
    : style_(style), terminal_(style == Style::Terminal), width_(width) {
    elapsed_.start();
    QJsonArray listed;
    for (const Device& device : devices) {
        rows_.append({device, QStringLiteral("waiting"), 0});
        listed.append(QJsonObject{{"ecid", formatEcid(device.ecid)},
                                  {"serialNumber", device.serialNumber},
                                  {"port", device.hubPort},
                                  {"model", device.model}});
    }
    if (style_ == Style::Json)
        emitJson({{"event", "batch"}, {"devices", listed}});
    redraw();
}

void RestoreBatchDisplay::emitJson(QJsonObject event) const {
    event.insert("time", std::round(double(elapsed_.elapsed()) / 10.0) / 100.0);
    std::printf("%s\n", QJsonDocument(event).toJson(QJsonDocument::Compact).constData());
}

void RestoreBatchDisplay::end(const QJsonArray& history, int exitStatus) {
    if (style_ == Style::Json)
        emitJson({{"event", "end"}, {"history", history}, {"status", exitStatus}});
    std::fflush(stdout);
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
        if (style_ == Style::Json)
            emitJson({{"event", "device"},
                      {"ecid", formatEcid(ecid)},
                      {"serialNumber", row.device.serialNumber},
                      {"status", text},
                      {"progress", std::round(double(newProgress) * 1000) / 1000}});
        else if (terminal_)
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
    if (style_ == Style::Json && !message.isEmpty())
        emitJson({{"event", "message"}, {"text", message}});
    else if (terminal_)
        redraw();
    else if (style_ == Style::Plain && !message.isEmpty())
        std::printf("%s\n", qPrintable(message));
    std::fflush(stdout);
}

void RestoreBatchDisplay::setRestoreTime(const QString& text) {
    if (!terminal_ || text == restoreTime_)
        return;
    restoreTime_ = text;
    redraw();
    std::fflush(stdout);
}

void RestoreBatchDisplay::note(const QString& text) {
    if (style_ == Style::Json) {
        emitJson({{"event", "note"}, {"text", text}});
        std::fflush(stdout);
        return;
    }
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
    return cut(QStringLiteral("%1  %2  %3  %4  %5 %6%  %7")
                   .arg(formatEcid(row.device.ecid), -18)
                   .arg(row.device.hubPort.isEmpty() ? QStringLiteral("-") : row.device.hubPort, -10)
                   .arg(shortened(row.device.model, modelWidth), -modelWidth)
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
    const QString status = restoreTime_.isEmpty() || message_.isEmpty()
                               ? restoreTime_ + message_
                               : restoreTime_ + QStringLiteral(" · ") + message_;
    std::printf("%s\n", qPrintable(cut(status)));
    drawnLines_ = static_cast<int>(rows_.size()) + 1;
}

}  // namespace cli
