#include "FaultChecks.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSet>

#include <gtest/gtest.h>

namespace faults {
namespace {

QStringList linesOf(const QString& output) {
    return output.split('\n', Qt::SkipEmptyParts);
}

QJsonObject objectOf(const QString& line) {
    return QJsonDocument::fromJson(line.toUtf8()).object();
}

}  // namespace

std::optional<QJsonObject> lastEvent(const QString& output, const QString& event) {
    std::optional<QJsonObject> found;
    for (const QString& line : linesOf(output)) {
        const QJsonObject object = objectOf(line);
        if (object.value("event").toString() == event)
            found = object;
    }
    return found;
}

void checkVerdict(const QJsonObject& verdict, QStringList ports, int exit) {
    QStringList accounted;
    for (const char* list : {"done", "nothingConnected", "notReached"})
        for (const QJsonValue port : verdict.value(list).toArray()) accounted << port.toString();
    for (const char* list : {"failed", "partlyDone"})
        for (const QJsonValue entry : verdict.value(list).toArray())
            accounted << entry.toObject().value("port").toString();
    accounted.sort();
    ports.sort();
    EXPECT_EQ(accounted, ports) << "each port once in the verdict";
    EXPECT_EQ(verdict.value("ok").toBool(), exit == 0);
}

void checkJsonLines(const QString& output) {
    double time = 0;
    for (const QString& line : linesOf(output)) {
        QJsonParseError error{};
        const QJsonObject object = QJsonDocument::fromJson(line.toUtf8(), &error).object();
        ASSERT_EQ(error.error, QJsonParseError::NoError) << "not JSON: " << line.toStdString();
        if (!object.contains("time"))
            continue;
        EXPECT_GE(object.value("time").toDouble(), time)
            << "time went back: " << line.toStdString();
        time = object.value("time").toDouble();
    }
}

void checkOutcomeLine(const QString& output, int exit) {
    const QStringList lines = linesOf(output);
    ASSERT_FALSE(lines.isEmpty()) << "a run ends by saying how it ended";
    const QJsonObject last = objectOf(lines.last());
    const QString event = last.value("event").toString();
    if (event == "verdict") {
        EXPECT_EQ(last.value("ok").toBool(), exit == 0);
        return;
    }
    EXPECT_TRUE(event == "end" || event == "summary") << lines.last().toStdString();
    EXPECT_EQ(last.value("status").toInt(-1), exit) << lines.last().toStdString();
}

void checkOneReason(const QString& errors, const QString& log) {
    const QStringList reasons =
        linesOf(errors).filter(QRegularExpression("^tarvel-cli: (?!warning: )"));
    EXPECT_FALSE(reasons.isEmpty()) << "a failure says why on standard error";
    EXPECT_EQ(QSet<QString>(reasons.begin(), reasons.end()).size(), reasons.size())
        << "and says it once: " << errors.toStdString();
    for (const QString& reason : reasons.filter(" ports done"))
        EXPECT_TRUE(log.contains(reason.mid(QStringLiteral("tarvel-cli: ").size())))
            << "a sequence's verdict is not in the log: " << reason.toStdString();
}

void checkWarningsOnce(const QString& output) {
    const QStringList warnings = linesOf(output).filter(QRegularExpression("^warning: "));
    EXPECT_EQ(QSet<QString>(warnings.begin(), warnings.end()).size(), warnings.size())
        << warnings.join('\n').toStdString();
}

void checkLanesOverlap(const QString& output, int hubs) {
    int switches = 0;
    QString current;
    for (const QString& line : linesOf(output)) {
        const QJsonObject event = objectOf(line);
        if (event.value("event") == "pause")
            break;
        if (event.value("event") != "step")
            continue;
        const QString hub = event.value("port").toString().section(':', 0, 0);
        switches += !current.isEmpty() && hub != current;
        current = hub;
    }
    EXPECT_GT(switches, hubs - 1) << "the hubs' first pass ran one hub after another";
}

QStringList processesMarked(const QByteArray& mark, qint64 except) {
    QStringList found;
    const QByteArray entry = "TARVEL_TEST_MARK=" + mark;
    for (const QString& pid : QDir("/proc").entryList({"[0-9]*"}, QDir::Dirs)) {
        QFile environ("/proc/" + pid + "/environ");
        if (pid.toLongLong() != except && environ.open(QIODevice::ReadOnly) &&
            environ.readAll().split('\0').contains(entry))
            found << pid;
    }
    return found;
}

}  // namespace faults
