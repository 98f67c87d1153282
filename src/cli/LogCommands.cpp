#include "cli/LogCommands.h"

#include "core/ZMRUnifiedLogger.h"

#include <QCoreApplication>
#include <QFile>
#include <QTimer>

#include <cstdio>

namespace cli {
namespace {

// Copies what the file holds past `position` to standard output and answers the new position.
// A file that shrank was started anew, so it is read again from the top.
qint64 copyNewBytes(const QString& path, qint64 position) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return position;
    if (file.size() < position)
        position = 0;
    file.seek(position);
    const QByteArray bytes = file.readAll();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stdout);
    std::fflush(stdout);
    return position + bytes.size();
}

int show(bool follow) {
    const QString path = ZMRUnifiedLogger::sharedLogger().logFileURL();
    if (!follow) {
        if (!QFile::exists(path))
            return fail(exitFailure, QStringLiteral("no log file at %1").arg(path));
        copyNewBytes(path, 0);
        return exitSuccess;
    }
    qint64 position = copyNewBytes(path, 0);
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] { position = copyNewBytes(path, position); });
    poll.start(250);
    return QCoreApplication::exec();
}

}  // namespace

void addLogCommands(CLI::App& app, CliContext& context) {
    CLI::App* log = app.add_subcommand("log", "Find and read Tarvel's log file");
    log->require_subcommand(1);

    log->add_subcommand("path", "Print the path of the log file")->callback([&context] {
        context.action = [] {
            std::printf("%s\n", qPrintable(ZMRUnifiedLogger::sharedLogger().logFileURL()));
            return exitSuccess;
        };
    });

    CLI::App* showCommand = log->add_subcommand("show", "Print the log file");
    auto follow = std::make_shared<bool>(false);
    showCommand->add_flag("-f,--follow", *follow, "keep printing lines as they are written");
    showCommand->callback(
        [&context, follow] { context.action = [follow] { return show(*follow); }; });
}

}  // namespace cli
