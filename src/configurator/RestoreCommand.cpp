#include "configurator/RestoreCommand.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

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

QList<UnreadableProgressLine> unreadableProgressLines(const QString& chunk) {
    // The runner hands over a null string for bytes that are not UTF-8.
    if (chunk.isNull())
        return {UnreadableProgressLine{ProgressLineProblem::NotText, QString()}};
    QList<UnreadableProgressLine> unreadable;
    for (const QString& raw : chunk.split('\n')) {
        const QString line = raw.trimmed();
        if (line.isEmpty())
            continue;
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(line.toUtf8(), &error);
        if (error.error != QJsonParseError::NoError || !document.isObject()) {
            unreadable.append({ProgressLineProblem::NotJson, line});
            continue;
        }
        const QJsonObject object = document.object();
        if (!object.contains(QStringLiteral("Step")) &&
            object.value(QStringLiteral("Type")).toString() != QLatin1String("Error"))
            unreadable.append({ProgressLineProblem::NoStep, line});
    }
    return unreadable;
}

QString unreadableProgressWarning(std::uint64_t ecid, const UnreadableProgressLine& unreadable) {
    constexpr qsizetype shownLength = 100;
    // Terminal control sequences in the line would redraw the reader's screen, not show up.
    QString shown;
    for (const QChar c : unreadable.line.left(shownLength))
        shown += c.category() == QChar::Other_Control
                     ? QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QChar('0'))
                     : QString(c);
    if (unreadable.line.size() > shownLength)
        shown += QStringLiteral("…");
    const QString device = QStringLiteral("0x") + QString::number(ecid, 16).toUpper();
    switch (unreadable.problem) {
        case ProgressLineProblem::NotText:
            return QStringLiteral("restore of %1: the tool printed output that is not UTF-8 text")
                .arg(device);
        case ProgressLineProblem::NotJson:
            return QStringLiteral("restore of %1: a line of the tool's progress is not JSON: %2")
                .arg(device, shown);
        case ProgressLineProblem::NoStep:
            return QStringLiteral(
                       "restore of %1: a line of the tool's progress has no \"Step\": %2")
                .arg(device, shown);
    }
    return QString();
}

QString restoreStatusText(float progress) {
    // Compared as the double the float widens to, so 0.1 itself already counts as restoring.
    return static_cast<double>(progress) < 0.1 ? QStringLiteral("Preparing image for restore...")
                                               : QStringLiteral("Restoring");
}

// What a tool's output says about a failure: the reason of an error document on standard output
// ("Type": "Error"), every other line of standard error. Progress lines say nothing of it.
QStringList errorLinesOf(const QString& chunk, bool standardError) {
    QStringList lines;
    for (const QString& raw :
         chunk.split(QRegularExpression(QStringLiteral("[\r\n]+")), Qt::SkipEmptyParts)) {
        const QString line = raw.trimmed();
        const QJsonObject document = QJsonDocument::fromJson(line.toUtf8()).object();
        if (document.value(QStringLiteral("Type")).toString() == QLatin1String("Error")) {
            const QString reason = document.value(QStringLiteral("FailureReason")).toString();
            lines << (reason.isEmpty() ? document.value(QStringLiteral("Message")).toString()
                                       : reason);
        } else if (standardError && !line.isEmpty()) {
            lines << line;
        }
    }
    return lines;
}

}  // namespace configurator
