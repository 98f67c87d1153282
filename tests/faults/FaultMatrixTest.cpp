// Every cell of the fault matrix runs one tarvel-cli command against a simulated station with one
// fault, and checks the promises every command makes: its exit status is the truth, every port
// it was given is in its verdict, no port is left disabled without a word, every Mac of a restore
// has its record, a success means the Macs really are in the mode asked for, the failure reaches
// the output or the log, and the run ends in bounded time.
#include "FaultCells.h"

#include "support/SimulatedStation.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSet>
#include <QThread>

#include <gtest/gtest.h>

#include <signal.h>

namespace {

using faults::Cell;
using faults::Interrupt;
using testing_support::SimulatedStation;

const QStringList kPorts = [] {
    QStringList ports;
    for (const char* hub : {"1C3B4A01", "1C3B4A02"})
        for (int port = 1; port <= 5; ++port) ports << QStringLiteral("%1:%2").arg(hub).arg(port);
    return ports;
}();

struct Outcome {
    int exit = -1;
    QString output;  // standard output, then standard error
    qint64 milliseconds = 0;
};

class FaultMatrix : public ::testing::Test {
  public:
    explicit FaultMatrix(Cell cell) : cell_(std::move(cell)) {}
    void TestBody() override;

  protected:
    void SetUp() override {
        stationFile = station.writeStation(faults::stationJson(cell_.station));
        ASSERT_FALSE(station.start({"--station", stationFile}).isEmpty());
        historyPath = QDir(station.logFolder()).filePath("../history.json");
    }

    QStringList arguments(const QStringList& command) const {
        QStringList resolved;
        for (const QString& argument : command)
            resolved << (argument == "{history}" ? historyPath : argument);
        return resolved;
    }

    // Runs the command, interrupting it as the cell says.
    Outcome run(const Cell& cell, const QStringList& command, Interrupt interrupt) {
        QProcess cli;
        QElapsedTimer clock;
        clock.start();
        EXPECT_TRUE(station.startCli(cli, arguments(command)));
        QByteArray output;
        if (interrupt != Interrupt::None) {
            EXPECT_TRUE(testing_support::readOutputUntil(cli, output, cell.at, 20000))
                << "never saw " << cell.at.toStdString() << " in " << output.toStdString();
            act(cli, interrupt);
        }
        const QDeadlineTimer deadline(cell.boundSeconds * 1000);
        while (cli.state() == QProcess::Running && !deadline.hasExpired()) cli.waitForFinished(100);
        if (cli.state() == QProcess::Running) {
            ADD_FAILURE() << "still running after " << cell.boundSeconds << " s";
            cli.kill();
            cli.waitForFinished();
        }
        Outcome outcome;
        outcome.milliseconds = clock.elapsed();
        outcome.exit = cli.exitStatus() == QProcess::NormalExit ? cli.exitCode() : -1;
        outcome.output = QString::fromUtf8(output + cli.readAllStandardOutput()) + '\n' +
                         QString::fromUtf8(cli.readAllStandardError());
        return outcome;
    }

    void act(QProcess& cli, Interrupt interrupt) {
        switch (interrupt) {
            case Interrupt::None:
                break;
            case Interrupt::Sigint:
                ::kill(pid_t(cli.processId()), SIGINT);
                break;
            case Interrupt::DoubleSigint:
                ::kill(pid_t(cli.processId()), SIGINT);
                QThread::msleep(200);
                ::kill(pid_t(cli.processId()), SIGINT);
                break;
            case Interrupt::Sigkill:
                cli.kill();
                break;
            case Interrupt::KillSimulator:
                station.simulator().kill();
                station.simulator().waitForFinished();
                simulatorGone = true;
                break;
            case Interrupt::RestartSimulator: {
                QThread::msleep(300);  // the watch has listed what is attached
                station.simulator().kill();
                station.simulator().waitForFinished();
                EXPECT_FALSE(station.start({"--station", stationFile}).isEmpty());
                QByteArray errors;
                const QDeadlineTimer deadline(10000);
                while (!errors.contains("is back") && !deadline.hasExpired()) {
                    cli.waitForReadyRead(100);
                    errors += cli.readAllStandardError();
                }
                QThread::msleep(500);  // anything it would wrongly report comes now
                restartErrors = errors;
                cli.terminate();
                break;
            }
        }
    }

    QString log() const { return station.log(); }

    static std::optional<QJsonObject> lastEvent(const QString& output, const QString& event) {
        std::optional<QJsonObject> found;
        for (const QString& line : output.split('\n')) {
            const QJsonObject object = QJsonDocument::fromJson(line.toUtf8()).object();
            if (object.value("event").toString() == event)
                found = object;
        }
        return found;
    }

    // Every port the command was given is in one place of the verdict, and the verdict's word
    // agrees with the exit status.
    static void checkVerdict(const QJsonObject& verdict, int exit) {
        QStringList accounted;
        for (const char* list : {"done", "nothingConnected", "notReached"})
            for (const QJsonValue port : verdict.value(list).toArray())
                accounted << port.toString();
        for (const char* list : {"failed", "partlyDone"})
            for (const QJsonValue entry : verdict.value(list).toArray())
                accounted << entry.toObject().value("port").toString();
        accounted.sort();
        QStringList expected = kPorts;
        expected.sort();
        EXPECT_EQ(accounted, expected) << "each port once in the verdict";
        EXPECT_EQ(verdict.value("ok").toBool(), exit == 0);
    }

    // The ports the hubs report disabled now.
    QStringList disabledPorts() const {
        const auto listed = station.cli({"hub", "list", "--json"});
        QStringList disabled;
        const QJsonArray hubs = QJsonDocument::fromJson(listed.standardOutput.toUtf8())
                                    .object()
                                    .value("hubs")
                                    .toArray();
        for (const QJsonValue hub : hubs)
            for (const QJsonValue port : hub["ports"].toArray())
                if (!port["enabled"].toBool() && port["port"].toInt() >= 1 &&
                    port["port"].toInt() <= 5)
                    disabled << QStringLiteral("%1:%2")
                                    .arg(hub["serial"].toString())
                                    .arg(port["port"].toInt());
        return disabled;
    }

    QMap<QString, QString> macStates() const {
        QMap<QString, QString> states;
        for (const QJsonValue mac : station.macs())
            states.insert(mac["ecid"].toString().mid(2).toUpper(), mac["state"].toString());
        return states;
    }

    // The Macs' states once none is restoring or starting up any more (a restored Mac leaves
    // the bus and boots after its tool has ended).
    QMap<QString, QString> settledMacStates() const {
        QMap<QString, QString> states = macStates();
        for (int attempt = 0; attempt < 50; ++attempt) {
            if (!states.values().contains("restoring") && !states.values().contains("off"))
                break;
            QThread::msleep(100);
            states = macStates();
        }
        return states;
    }

    // Every Mac of the batch has an outcome in the written history, and a Mac the station shows
    // restored has "Restored Successfully" there.
    void checkHistory(int exit) const {
        QFile file(historyPath);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << "no history written";
        QMap<QString, QStringList> records;
        for (const QJsonValue record : QJsonDocument::fromJson(file.readAll()).array())
            records[record["device"].toString()] << record["message"].toString();
        const auto states = simulatorGone ? QMap<QString, QString>() : settledMacStates();
        for (const QString& ecid : states.keys()) {
            ASSERT_TRUE(records.contains(ecid)) << ecid.toStdString() << " has no record";
            // Abandoned says the outcome is unknown: the run left before it came.
            if (records[ecid].contains("Restore Abandoned"))
                continue;
            const bool restored = records[ecid].contains("Restored Successfully");
            EXPECT_EQ(states[ecid] == "booted", restored)
                << ecid.toStdString() << " is " << states[ecid].toStdString()
                << "; records: " << records[ecid].join(" | ").toStdString();
        }
        if (simulatorGone) {
            EXPECT_EQ(records.size(), 10);
        }
        if (exit == 0) {
            for (const QStringList& messages : records)
                EXPECT_TRUE(messages.contains("Restored Successfully"));
        }
    }

    const Cell cell_;
    SimulatedStation station;
    QString stationFile;
    QString historyPath;
    bool simulatorGone = false;
    QByteArray restartErrors;
};

void FaultMatrix::TestBody() {
    const Cell& cell = cell_;
    for (const QString& before : cell.before) {
        const auto done = station.cli(before.split(' '));
        ASSERT_EQ(done.exitCode, 0)
            << before.toStdString() << ": " << done.standardError.toStdString();
    }
    Outcome outcome = run(cell, cell.command, cell.interrupt);
    if (cell.interrupt == Interrupt::Sigkill)
        outcome = run(cell, cell.rerun, Interrupt::None);
    const QString& output = outcome.output;
    SCOPED_TRACE(output.toStdString());

    if (cell.interrupt != Interrupt::RestartSimulator) {
        EXPECT_EQ(outcome.exit, cell.exit) << "the exit status";
    }
    EXPECT_LT(outcome.milliseconds, cell.boundSeconds * 1000);
    const QString said = output + QString::fromUtf8(restartErrors);
    if (!cell.said.isEmpty()) {
        EXPECT_TRUE(said.contains(cell.said)) << "says " << cell.said.toStdString();
    }
    if (!cell.notSaid.isEmpty()) {
        EXPECT_FALSE(said.contains(cell.notSaid)) << "never says " << cell.notSaid.toStdString();
    }
    if (!cell.logged.isEmpty()) {
        EXPECT_TRUE(log().contains(cell.logged)) << "logs " << cell.logged.toStdString();
    }
    if (outcome.exit > 0 && outcome.exit != 130) {
        EXPECT_TRUE(output.contains("tarvel-cli:")) << "a failure says why on standard error";
    }

    const QStringList& command = cell.interrupt == Interrupt::Sigkill ? cell.rerun : cell.command;
    const auto verdict = lastEvent(output, "verdict");
    if (command.contains("--all")) {
        ASSERT_TRUE(verdict) << "a sequence ends with its verdict";
        checkVerdict(*verdict, outcome.exit);
    }
    if (command.first() == "restore")
        checkHistory(outcome.exit);
    if (simulatorGone || cell.interrupt == Interrupt::RestartSimulator)
        return;

    // A port is disabled only where the run said so: left disabled, refused as disabled, or its
    // enable failed (a hub that went away mid-cycle cannot be read again to tell more).
    const QJsonArray leftDisabled =
        verdict ? verdict->value("leftDisabled").toArray() : QJsonArray();
    QStringList enableFailed;
    for (const QJsonValue entry : verdict ? verdict->value("failed").toArray() : QJsonArray())
        if (entry["step"].toString() == "enable")
            enableFailed << entry["port"].toString();
    for (const QString& port : disabledPorts())
        EXPECT_TRUE(leftDisabled.contains(port) || enableFailed.contains(port) ||
                    output.contains("the port is disabled"))
            << port.toStdString() << " is disabled and the run did not say so";

    if (outcome.exit == 0 && command.contains("--all")) {
        const QString wanted = command.contains("dfu")        ? "dfu"
                               : command.contains("recovery") ? "recovery"
                                                              : QString();
        for (const auto& [ecid, state] : macStates().asKeyValueRange()) {
            if (!wanted.isEmpty()) {
                EXPECT_EQ(state, wanted) << ecid.toStdString() << " after a run that succeeded";
            }
        }
    }
}

// One test a cell, named after it, so each runs as a test of its own.
const bool registered = [] {
    for (const Cell& cell : faults::faultCells())
        ::testing::RegisterTest("FaultMatrix", cell.name, nullptr, nullptr, __FILE__, __LINE__,
                                [cell]() -> ::testing::Test* { return new FaultMatrix(cell); });
    return true;
}();

}  // namespace
