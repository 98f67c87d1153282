#include "configurator/RestoreCommand.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace configurator {

RestorePlatform currentRestorePlatform() {
#ifdef Q_OS_MACOS
    return RestorePlatform::MacOS;
#else
    return RestorePlatform::Linux;
#endif
}

QStringList deviceRestoreCommand(RestorePlatform platform, const QString& toolPath,
                                 const QString& ptyPath, std::uint64_t ecid,
                                 const std::optional<QString>& customIPSW) {
    const QString terminal =
        platform == RestorePlatform::MacOS ? QStringLiteral("/usr/bin/script") : ptyPath;
    QStringList command{terminal,
                        QStringLiteral("-q"),
                        QStringLiteral("/dev/null"),
                        toolPath,
                        QStringLiteral("-e"),
                        QString::number(static_cast<qint64>(ecid)),
                        QStringLiteral("--progress"),
                        QStringLiteral("--format"),
                        QStringLiteral("json"),
                        QStringLiteral("restore")};
    if (customIPSW)
        command << QStringLiteral("-I") << *customIPSW;
    return command;
}

QStringList singleRestoreCommand(const QString& toolPath,
                                 const std::optional<QString>& customIPSW) {
    QStringList command{toolPath, QStringLiteral("--progress"), QStringLiteral("restore")};
    if (customIPSW)
        command << QStringLiteral("-I") << *customIPSW;
    return command;
}

std::optional<RestoreProgress> parseRestoreProgress(const QString& chunk) {
    QString candidate;
    const QStringList lines = chunk.split('\n');
    // Walked from the last line to the first without stopping, so the first non-empty line wins.
    for (auto line = lines.crbegin(); line != lines.crend(); ++line) {
        if (!line->isEmpty())
            candidate = *line;
    }
    if (candidate.isEmpty())
        return std::nullopt;
    const QJsonDocument document = QJsonDocument::fromJson(candidate.toUtf8());
    const QJsonObject object = document.object();
    if (!object.contains(QStringLiteral("Step")))
        return std::nullopt;
    RestoreProgress progress;
    progress.step = object.value(QStringLiteral("Step")).toVariant();
    if (object.contains(QStringLiteral("Progress")))
        progress.progress = static_cast<float>(object.value(QStringLiteral("Progress")).toDouble());
    return progress;
}

QString restoreStatusText(float progress) {
    // Compared as the double the float widens to, so 0.1 itself already counts as restoring.
    return static_cast<double>(progress) < 0.1 ? QStringLiteral("Preparing image for restore...")
                                               : QStringLiteral("Restoring");
}

}  // namespace configurator
