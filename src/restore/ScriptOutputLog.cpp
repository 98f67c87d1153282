#include "restore/ScriptOutputLog.h"

namespace restore {
namespace {

// The UTF-8 size of a piece of text, without converting it: only the count is wanted for the
// part that is not logged.
qint64 utf8Size(QStringView text) {
    qint64 bytes = 0;
    for (const QChar c : text) {
        const char16_t unit = c.unicode();
        if (unit < 0x80)
            bytes += 1;
        else if (unit < 0x800)
            bytes += 2;
        else if (QChar::isSurrogate(unit))
            bytes += 2;  // a pair is four bytes
        else
            bytes += 3;
    }
    return bytes;
}

}  // namespace

ScriptOutputLog::ScriptOutputLog(LogLine log) : log_(std::move(log)) {}

void ScriptOutputLog::add(const QString& prefix, const QString& chunk) {
    if (full_) {
        dropped_ += utf8Size(chunk);
        return;
    }
    const QStringView text(chunk);
    qsizetype from = 0;
    while (from < text.size()) {
        const qsizetype newline = text.indexOf(u'\n', from);
        const qsizetype to = newline < 0 ? text.size() : newline + 1;
        const QStringView line = text.sliced(from, to - from);
        const qint64 size = utf8Size(line);
        if (kept_ + size > budgetBytes) {
            full_ = true;
            dropped_ += utf8Size(text.sliced(from));
            return;
        }
        kept_ += size;
        const QStringView trimmed = line.trimmed();
        if (!trimmed.isEmpty())
            log_(prefix + trimmed.toString());
        from = to;
    }
}

void ScriptOutputLog::finish() {
    if (dropped_ > 0)
        log_(QStringLiteral("The event script printed %1 bytes more than the %2 KiB logged; "
                            "they were not kept")
                 .arg(dropped_)
                 .arg(budgetBytes / 1024));
}

}  // namespace restore
