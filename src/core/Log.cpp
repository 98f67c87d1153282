#include "core/Log.h"

#include "core/ZMRUnifiedLogger.h"

#include <syslog.h>
#include <unistd.h>

#include <mutex>

namespace core {

QString systemLogEntry(const QString& message) {
    QString escaped = message;
    escaped.replace('\n', QStringLiteral("\\n"));
    return QStringLiteral("TARVEL_LOG:") + escaped;
}

QString sourceLocatedMessage(const QString& message, const QString& file, int line,
                             const QString& function) {
    const QStringList pieces = file.split('/', Qt::SkipEmptyParts);
    if (pieces.isEmpty()) return {};
    return QStringLiteral("%1:%2 %3 %4").arg(pieces.last()).arg(line).arg(function, message);
}

}  // namespace core

namespace {

void copyToSystemLog(const QString& message) {
    // Without a system log socket the C library would try to reach it again at every line, a
    // socket, a connect and a close each time: a cost progress lines cannot carry.
    static const bool present = ::access("/dev/log", W_OK) == 0;
    if (!present) return;
    static std::once_flag opened;
    std::call_once(opened, [] { openlog("Tarvel", LOG_PID, LOG_USER); });
    if ((setlogmask(0) & LOG_MASK(LOG_NOTICE)) == 0) return;
    syslog(LOG_NOTICE, "%s", core::systemLogEntry(message).toUtf8().constData());
}

void logAt(int level, const QString& message) {
    copyToSystemLog(message);
    ZMRUnifiedLogger::sharedLogger().logString(message, level);
}

void logLocated(void (*log)(const QString&), const QString& message, const QString& file, int line,
                const QString& function) {
    const QString located = core::sourceLocatedMessage(message, file, line, function);
    if (!located.isEmpty()) log(located);
}

}  // namespace

void ZMRLogDebug(const QString& message) { logAt(ZMRUnifiedLogger::levelDebug, message); }
void ZMRLogLevel1(const QString& message) { logAt(1, message); }
void ZMRLogLevel0(const QString& message) { logAt(0, message); }

void ZMRLogAtLevel1(const QString& message, const QString& file, int line, const QString& function) {
    logLocated(ZMRLogLevel1, message, file, line, function);
}

void ZMRLogDebugAt(const QString& message, const QString& file, int line, const QString& function) {
    logLocated(ZMRLogDebug, message, file, line, function);
}

void ZMRLogAtLevel0(const QString& message, const QString& file, int line, const QString& function) {
    logLocated(ZMRLogLevel0, message, file, line, function);
}
