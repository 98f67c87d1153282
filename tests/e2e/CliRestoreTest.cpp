#include "support/SimulatedStation.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QThread>

#include <gtest/gtest.h>

#include <signal.h>

namespace {

using testing_support::ProcessResult;

// Ten Macs waiting in DFU mode on two hubs, one of which fails its restore. A restore takes
// RESTORE simulated seconds.
QByteArray station(int restoreSeconds) {
    QByteArray hubs;
    for (int hub = 1; hub <= 2; ++hub) {
        QByteArray macs;
        for (int port = 1; port <= 5; ++port) {
            const QByteArray failure =
                hub == 2 && port == 3 ? R"(, "restoreFailure": {"atProgress": 0.5, "status": 21,
                    "message": "libusbrestore error:21", "endState": "recovery"})"
                                      : "";
            macs += QStringLiteral(R"(%1{"port": %2, "ecid": "0x%3%4", "serialNumber": "SN%3%4",
                "state": "dfu"%5})")
                        .arg(port == 1 ? "" : ",")
                        .arg(port)
                        .arg(hub)
                        .arg(port)
                        .arg(QString::fromUtf8(failure))
                        .toUtf8();
        }
        hubs += QStringLiteral(R"(%1{"serial": "0x1C3B4A0%2", "macs": [%3]})")
                    .arg(hub == 1 ? "" : ",")
                    .arg(hub)
                    .arg(QString::fromUtf8(macs))
                    .toUtf8();
    }
    return R"({"timing": {"bootSeconds": 1, "restoreSeconds": )" + QByteArray::number(restoreSeconds) +
           R"(, "reenumerateSeconds": 1}, "hubs": [)" + hubs + "]}";
}

class CliRestore : public ::testing::Test {
  protected:
    void SetUp() override {
        history = station_.logFolder() + "/history.json";
        events = station_.logFolder() + "/events";
        QFile script(station_.logFolder() + "/on-event");
        ASSERT_TRUE(script.open(QIODevice::WriteOnly));
        script.write("#!/bin/sh\necho \"$1 $2\" >> '" + events.toUtf8() + "'\n");
        script.close();
        script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        station_.setPreference("shouldUseEventScript", true);
        station_.setPreference("eventScriptPath", script.fileName());
    }

    QJsonArray historyRecords() const {
        QFile file(history);
        return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).array()
                                              : QJsonArray();
    }
    QStringList eventLines() const {
        QFile file(events);
        if (!file.open(QIODevice::ReadOnly))
            return {};
        QStringList lines = QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
        lines.sort();
        return lines;
    }

    testing_support::SimulatedStation station_;
    QString history;
    QString events;
};

TEST_F(CliRestore, RestoresEveryMacInDFUAndNamesTheOneThatFailed) {
    station_.setPreference("timeBetweenProcesses", "0");
    ASSERT_FALSE(station_.start({"--station", station_.writeStation(station(20))}).isEmpty())
        << station_.simulator().readAllStandardError().toStdString();
    const ProcessResult run =
        station_.cli({"restore", "--all-dfu", "--history-json", history});
    EXPECT_EQ(run.exitCode, 1) << run.standardError.toStdString();

    const QJsonArray records = historyRecords();
    ASSERT_EQ(records.size(), 10) << run.standardOutput.toStdString();
    QStringList failed;
    for (const QJsonValue record : records) {
        if (record["message"].toString() != "Restored Successfully")
            failed << record["device"].toString() + " " + record["message"].toString();
    }
    EXPECT_EQ(failed, QStringList{"23 There was an error restoring the device with status 1. "
                                  "Please check log for error message. You can also try restoring "
                                  "with Apple Configurator to help identify issues."});
    EXPECT_TRUE(run.standardOutput.contains("History:"));
    EXPECT_TRUE(run.standardOutput.contains("0x15  ")) << run.standardOutput.toStdString();
    EXPECT_TRUE(run.standardError.contains("cfgutil (0x23): libusbrestore error:21\n"))
        << "the tool's own reason, not only its status";
    QFile log(station_.logFolder() + "/generic.log");
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    EXPECT_TRUE(
        log.readAll().contains("Restore of 23 failed with status 1: libusbrestore error:21"));
    EXPECT_FALSE(run.standardOutput.contains('\x1b')) << "piped output has no control characters";

    // The event scripts are started as the batch ends; the last may still be on its way.
    const QDeadlineTimer deadline(5000);
    while (eventLines().size() < 20 && !deadline.hasExpired()) QThread::msleep(50);
    const QStringList seen = eventLines();
    ASSERT_EQ(seen.size(), 20);
    EXPECT_EQ(seen.count("restoreStarted success"), 10);
    EXPECT_EQ(seen.count("restoreCompleted success"), 9);
    EXPECT_EQ(seen.count("restoreCompleted fail"), 1);
}

// A bench script follows the batch through JSON lines: the devices first, their progress, and the
// history and exit status last.
TEST_F(CliRestore, JsonLinesFollowTheBatchToItsHistory) {
    station_.setPreference("timeBetweenProcesses", "0");
    ASSERT_FALSE(station_.start({"--station", station_.writeStation(station(20))}).isEmpty());
    const ProcessResult run = station_.cli({"restore", "--json", "15", "23"});
    EXPECT_EQ(run.exitCode, 1) << run.standardError.toStdString();

    QList<QJsonObject> lines;
    for (const QString& line : run.standardOutput.split('\n', Qt::SkipEmptyParts)) {
        QJsonParseError error{};
        lines << QJsonDocument::fromJson(line.toUtf8(), &error).object();
        ASSERT_EQ(error.error, QJsonParseError::NoError) << line.toStdString();
    }
    ASSERT_GE(lines.size(), 3);
    EXPECT_EQ(lines.first()["event"], "batch");
    EXPECT_EQ(lines.first()["devices"].toArray().size(), 2);
    const QJsonObject end = lines.last();
    EXPECT_EQ(end["event"], "end");
    EXPECT_EQ(end["status"], 1);
    EXPECT_EQ(end["history"].toArray().size(), 2);
    double furthest = 0;
    for (const QJsonObject& event : lines)
        if (event["event"] == "device" && event["ecid"] == "0x15")
            furthest = std::max(furthest, event["progress"].toDouble());
    EXPECT_DOUBLE_EQ(furthest, 1.0) << run.standardOutput.toStdString();
}

}  // namespace
