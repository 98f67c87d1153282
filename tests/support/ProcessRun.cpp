#include "support/ProcessRun.h"

#include <QDeadlineTimer>
#include <QProcess>

namespace testing_support {

QString buildDirectory() { return qEnvironmentVariable("TARVEL_BUILD_DIR"); }

QString executablePath(const QString& name) { return buildDirectory() + "/bin/" + name; }

ProcessResult runExecutable(const QString& name, const QStringList& arguments,
                            const QProcessEnvironment& environment) {
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(executablePath(name), arguments);
    ProcessResult result;
    if (!process.waitForStarted(10000)) {
        result.standardError = process.errorString();
        return result;
    }
    process.closeWriteChannel();
    if (!process.waitForFinished(30000)) process.kill();
    process.waitForFinished();
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.standardOutput = QString::fromUtf8(process.readAllStandardOutput());
    result.standardError = QString::fromUtf8(process.readAllStandardError());
    return result;
}

bool readOutputUntil(QProcess& process, QByteArray& output, const QByteArray& wanted,
                     int milliseconds) {
    const QDeadlineTimer deadline(milliseconds);
    while (!output.contains(wanted) && !deadline.hasExpired() &&
           process.state() == QProcess::Running) {
        process.waitForReadyRead(100);
        output += process.readAllStandardOutput();
    }
    output += process.readAllStandardOutput();
    return output.contains(wanted);
}

}  // namespace testing_support
