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
        // Standard error whatever the echo: where the one notice of an unwritable log goes.
        std::function<void(const QByteArray&)> notice;
    };

    // Posted once, with the notice as "message", when the log file first cannot be written.
    static constexpr auto writeProblemNotification = "LogFileWriteProblemNotification";

    ZMRUnifiedLogger(core::LogLocation location, core::Settings& settings, core::Clock& clock,
                     Streams streams, QString processPrefix);

    static ZMRUnifiedLogger& sharedLogger();

    void logString(const QString& message, int level);

    QString logFileURL() const { return location_.filePath(); }
    QString lastLine() const;
    qint64 repeated() const;
    // Why the log file could not be written, from the first failure on; empty while it can.
    QString writeProblem() const;

    static Streams processStreams();
    // Whether this process's log lines are echoed to standard error (on by default). The
    // command-line tool turns the echo off unless asked, so its own output stays readable.
    static void setProcessEcho(bool echo);
    // "name(pid)" of this process.
    static QString processPrefix();

private:
    // Writes or collapses the line; answers the notice to post when the file first failed.
    QString writeLine(const QString& message);
    bool isRepeat(const QString& message, const QDateTime& now) const;
    // Empty when the bytes went into the file, else why not.
    QString append(const QByteArray& bytes) const;
    // Answers the notice to post when this is the first failure.
    QString noteWriteProblem(const QString& reason);

    core::LogLocation location_;
    core::Settings& settings_;
    core::Clock& clock_;
    Streams streams_;
    QString prefix_;

    mutable std::mutex mutex_;
    QString lastLine_;
    QDateTime lastLoggedDate_;  // invalid stands for the distant past
    qint64 repeated_ = 0;
    QString writeProblem_;
};

// Local time with its numeric offset, e.g. 2024-05-02T14:03:11+02:00.
QString iso8601LocalTimestamp(const QDateTime& moment);
