#pragma once

#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

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

}  // namespace testing_support
