#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QStringList>
#include <QTemporaryDir>

#include <functional>

namespace testing_support {

// Small shell scripts written by a test to stand in for a child process or a tool.
class Scripts {
  public:
    QString write(const QString& name, const QString& body) {
        const QString path = dir.filePath(name);
        QFile file(path);
        file.open(QIODevice::WriteOnly);
        file.write(("#!/bin/sh\n" + body + "\n").toUtf8());
        file.close();
        file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return path;
    }
    QString path(const QString& name) const { return dir.filePath(name); }
    // What scripts wrote to the file `name`, sorted: scripts started together end in any order.
    QStringList sortedLines(const QString& name) const {
        QFile file(path(name));
        QStringList lines;
        if (file.open(QIODevice::ReadOnly))
            lines = QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
        lines.sort();
        return lines;
    }
    // An event script that appends "event outcome payload", the payload decoded, to `log`.
    QString eventRecorder(const QString& log) {
        return write("on-event",
                     "printf '%s %s %s\\n' \"$1\" \"$2\" \"$(printf %s \"$3\" | "
                     "base64 -d)\" >> '" +
                         path(log) + "'");
    }

    QTemporaryDir dir;
};

// Runs the main loop until the condition holds; false if it never did within the safety limit,
// which only a broken implementation reaches.
inline bool runLoopUntil(const std::function<bool()>& condition, int limitMs = 10000) {
    QDeadlineTimer deadline(limitMs);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    }
    return true;
}

}  // namespace testing_support
