#include "core/ZMRUnifiedLogger.h"

#include "core/Clock.h"
#include "core/NotificationCenter.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"

#include <QFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr qint64 kRepeatWindowMs = 2000;
constexpr qint64 kStandardOutputCopyThreshold = 1001;
std::atomic<bool> processEcho{true};

bool writeAll(int fd, const QByteArray& bytes) {
    const char* data = bytes.constData();
    qsizetype left = bytes.size();
    while (left > 0) {
        const ssize_t written = ::write(fd, data, static_cast<size_t>(left));
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0)
            return false;
        data += written;
        left -= written;
    }
    return true;
}

QString systemError() {
    return QString::fromLocal8Bit(std::strerror(errno));
}

// A log folder may be shared or planted: what is there must be our own plain file, or another
// account could have the log written into a file of its choosing (a link, a device, a FIFO).
QString refusal(int fd) {
    struct stat info {};
    if (::fstat(fd, &info) != 0)
        return systemError();
    if (!S_ISREG(info.st_mode))
        return QStringLiteral("not a regular file");
    if (info.st_uid != ::geteuid())
        return QStringLiteral("owned by another user");
    return {};
}

}  // namespace

QString iso8601LocalTimestamp(const QDateTime& moment) {
    const QDateTime local = moment.toLocalTime();
    const int offset = local.offsetFromUtc();
    const int minutes = std::abs(offset) / 60;
    return local.toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss")) +
           QString::asprintf("%c%02d:%02d", offset < 0 ? '-' : '+', minutes / 60, minutes % 60);
}

ZMRUnifiedLogger::ZMRUnifiedLogger(core::LogLocation location, core::Settings& settings,
                                   core::Clock& clock, Streams streams, QString processPrefix)
    : location_(std::move(location)),
      settings_(settings),
      clock_(clock),
      streams_(std::move(streams)),
      prefix_(std::move(processPrefix)) {}

ZMRUnifiedLogger& ZMRUnifiedLogger::sharedLogger() {
    static ZMRUnifiedLogger* instance =
        new ZMRUnifiedLogger(core::chooseLogLocation(core::processLogLocationInputs()),
                             core::Settings::shared(), core::Clock::system(), processStreams(),
                             processPrefix());
    return *instance;
}

ZMRUnifiedLogger::Streams ZMRUnifiedLogger::processStreams() {
    return {[](const QByteArray& bytes) {
                if (processEcho)
                    writeAll(STDERR_FILENO, bytes);
            },
            [](const QByteArray& bytes) {
                std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stdout);
                std::fflush(stdout);
            },
            [](const QByteArray& bytes) { writeAll(STDERR_FILENO, bytes); }};
}

void ZMRUnifiedLogger::setProcessEcho(bool echo) { processEcho = echo; }

QString ZMRUnifiedLogger::processPrefix() {
    return QStringLiteral("%1(%2)").arg(QString::fromLocal8Bit(program_invocation_short_name))
        .arg(::getpid());
}

QString ZMRUnifiedLogger::lastLine() const {
    std::lock_guard lock(mutex_);
    return lastLine_;
}

qint64 ZMRUnifiedLogger::repeated() const {
    std::lock_guard lock(mutex_);
    return repeated_;
}

bool ZMRUnifiedLogger::isRepeat(const QString& message, const QDateTime& now) const {
    return lastLoggedDate_.isValid() && lastLoggedDate_.msecsTo(now) <= kRepeatWindowMs &&
           message == lastLine_;
}

QString ZMRUnifiedLogger::writeProblem() const {
    std::lock_guard lock(mutex_);
    return writeProblem_;
}

// Never through a link, and never waiting on a FIFO someone put in the file's place.
QString ZMRUnifiedLogger::append(const QByteArray& bytes) const {
    const int flags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    const int fd = ::open(QFile::encodeName(logFileURL()).constData(), flags,
                          location_.ownerOnly ? 0600 : 0644);
    if (fd < 0)
        return errno == ELOOP ? QStringLiteral("a symbolic link, which is not followed")
                              : systemError();
    QString problem = refusal(fd);
    if (problem.isEmpty() && !writeAll(fd, bytes))
        problem = systemError();
    ::close(fd);
    return problem;
}

QString ZMRUnifiedLogger::noteWriteProblem(const QString& reason) {
    if (!writeProblem_.isEmpty())
        return {};
    writeProblem_ = QStringLiteral("Cannot write the log file %1 (%2); log lines are not kept")
                        .arg(logFileURL(), reason);
    if (streams_.notice)
        streams_.notice(prefix_.toUtf8() + ": " + writeProblem_.toUtf8() + '\n');
    return writeProblem_;
}

void ZMRUnifiedLogger::logString(const QString& message, int level) {
    if (level == levelDebug && !settings_.boolForKey(core::keys::showDebug)) return;
    // Posted outside the lock: an observer may well log.
    const QString notice = writeLine(message);
    if (!notice.isEmpty())
        core::NotificationCenter::defaultCenter().post(writeProblemNotification,
                                                       {{QStringLiteral("message"), notice}});
}

QString ZMRUnifiedLogger::writeLine(const QString& message) {
    std::lock_guard lock(mutex_);
    const QByteArray text = message.toUtf8();
    if (streams_.standardError) streams_.standardError(text + '\n');

    const QDateTime now = clock_.now();
    if (isRepeat(message, now)) {
        if (repeated_ >= kStandardOutputCopyThreshold && streams_.standardOutput)
            streams_.standardOutput(text + '\n');
        ++repeated_;
        lastLine_ = message;
        return {};
    }

    const QByteArray timestamp = iso8601LocalTimestamp(now).toUtf8();
    QByteArray lines;
    if (repeated_ >= 1) {
        lines += timestamp + ":Last message repeated " + QByteArray::number(repeated_) + " times\n";
        repeated_ = 0;
        lastLine_.clear();
    }
    lines += timestamp + ' ' + prefix_.toUtf8() + ": " + text + '\n';
    const QString problem = append(lines);
    lastLoggedDate_ = now;
    lastLine_ = message;
    return problem.isEmpty() ? QString() : noteWriteProblem(problem);
}
