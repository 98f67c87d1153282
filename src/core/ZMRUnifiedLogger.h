#pragma once

#include "core/LogLocation.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <functional>
#include <mutex>

namespace core {
class Clock;
class Settings;
}  // namespace core

// The process-wide log file. Each accepted line is appended with its own open/write/close, so
// another process (or `tarvel-cli log show --follow`) always sees whole lines; identical lines in
// quick succession are collapsed into one summary.
class ZMRUnifiedLogger {
public:
    static constexpr int levelDebug = 2;

    struct Streams {
        std::function<void(const QByteArray&)> standardError;
        std::function<void(const QByteArray&)> standardOutput;
    };

    ZMRUnifiedLogger(core::LogLocation location, core::Settings& settings, core::Clock& clock,
                     Streams streams, QString processPrefix);

    static ZMRUnifiedLogger& sharedLogger();

    void logString(const QString& message, int level);

    QString logFileURL() const { return location_.filePath(); }
    QString lastLine() const;
    qint64 repeated() const;

    static Streams processStreams();
    // Whether this process's log lines are echoed to standard error (on by default). The
    // command-line tool turns the echo off unless asked, so its own output stays readable.
    static void setProcessEcho(bool echo);
    // "name(pid)" of this process.
    static QString processPrefix();

private:
    bool isRepeat(const QString& message, const QDateTime& now) const;
    void append(const QByteArray& bytes) const;

    core::LogLocation location_;
    core::Settings& settings_;
    core::Clock& clock_;
    Streams streams_;
    QString prefix_;

    mutable std::mutex mutex_;
    QString lastLine_;
    QDateTime lastLoggedDate_;  // invalid stands for the distant past
    qint64 repeated_ = 0;
};

// Local time with its numeric offset, e.g. 2024-05-02T14:03:11+02:00.
QString iso8601LocalTimestamp(const QDateTime& moment);
