#include "RestoreOutput.h"

#include <QDateTime>
#include <QFileInfo>

#include <cstdio>

namespace simidevicerestore {
namespace {

constexpr int barWidth = 30;

void print(std::FILE* stream, const QByteArray& bytes) {
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stream);
    std::fflush(stream);
}

}  // namespace

void RestoreOutput::openLog(const QString& path) {
    if (log_.isOpen() || QFileInfo(path).isSymLink())
        return;
    log_.setFileName(path);
    if (!log_.open(QIODevice::WriteOnly | QIODevice::Append))
        return;
    for (const QString& stamped : std::as_const(pendingLog_)) writeLogLine(stamped);
    pendingLog_.clear();
}

void RestoreOutput::line(const QString& text) {
    print(stdout, text.toUtf8() + '\n');
    log(text, false);
}

void RestoreOutput::error(const QString& text) {
    if (oldErrorStyle_)
        print(stderr, "ERROR: " + text.toUtf8() + '\n');
    else
        print(stdout, text.toUtf8() + '\n');
    log(text, true);
}

void RestoreOutput::stepProgress(int step, const QString& barLabel, double fraction) {
    if (plainProgress_)
        line(QString::asprintf("progress: %d %f", step, fraction));
    else if (!barLabel.isEmpty())
        bar(barLabel, fraction * 100.0);
}

void RestoreOutput::labelledProgress(const QString& label, double percent) {
    if (plainProgress_)
        line(label + QString::asprintf(": %5.1f", percent));
    else
        bar(label, percent);
}

// The bar stays on one line, redrawn after "\r", until it is full; only then a newline follows,
// and only the full bar goes to the log.
void RestoreOutput::bar(const QString& label, double percent) {
    const int filled = qBound(0, static_cast<int>(percent * barWidth / 100.0), barWidth);
    const QString drawn = label + QStringLiteral(" [") + QString(filled, u'=') +
                          QString(barWidth - filled, u' ') + QStringLiteral("] ") +
                          QString::asprintf("%5.1f%%", percent);
    const bool full = percent >= 100.0;
    print(stdout, '\r' + drawn.toUtf8() + (full ? "\n" : ""));
    if (full)
        log(drawn, false);
}

void RestoreOutput::log(const QString& text, bool isError) {
    const QString stamped = QDateTime::currentDateTime().toString(Qt::ISODate) +
                            (isError ? QStringLiteral(" <Error> ") : QStringLiteral(" ")) + text;
    if (log_.isOpen())
        writeLogLine(stamped);
    else
        pendingLog_ << stamped;
}

void RestoreOutput::writeLogLine(const QString& stamped) {
    log_.write(stamped.toUtf8() + '\n');
    log_.flush();
}

}  // namespace simidevicerestore
