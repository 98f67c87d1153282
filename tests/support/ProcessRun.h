#pragma once

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

class QProcess;

namespace testing_support {

struct ProcessResult {
    int exitCode = -1;
    QString standardOutput;
    QString standardError;
};

// The folder the build put the executables in.
QString buildDirectory();
QString executablePath(const QString& name);

// Runs a built executable to its end (30 s at most) and collects both streams.
ProcessResult runExecutable(const QString& name, const QStringList& arguments,
                            const QProcessEnvironment& environment);

// Reads a running process's standard output into `output` until it holds `wanted`, the process
// ends, or `milliseconds` pass; answers whether `wanted` came.
bool readOutputUntil(QProcess& process, QByteArray& output, const QByteArray& wanted,
                     int milliseconds);

}  // namespace testing_support
