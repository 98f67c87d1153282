// Every cell of the fault matrix runs one tarvel-cli command against a simulated station with one
// fault, and checks the promises every command makes: its exit status is the truth, every port
// it was given is in its verdict, no port is left disabled without a word, every Mac of a restore
// has its record in the history, the records and the event script, a success means the Macs
// really are in the mode asked for, the failure reaches the output and the log once, piped output
// is plain, nothing is left running, and the run ends in bounded time.
#include "FaultCells.h"
#include "FaultChecks.h"
#include "StationState.h"

#include "support/PrivateBus.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QProcess>
#include <QThread>
#include <QUuid>

#include <gtest/gtest.h>

#include <signal.h>

namespace {

using faults::Cell;
using faults::Interrupt;

struct Outcome {
    int exit = -1;
    QString output;  // standard output
    QString errors;
    qint64 milliseconds = 0;
};

class FaultMatrix : public ::testing::Test {
  public:
    explicit FaultMatrix(Cell cell) : cell_(std::move(cell)) {}
    void TestBody() override;

  protected:
    void SetUp() override {
        testing_support::StationBuilder spec = cell_.station;
        if (!spec.hasTiming("restoreSeconds"))
            spec.timing("restoreSeconds", 30);
        stationFile = state.station.writeStation(spec.json());
        // A plain terminal (SSH, CI): no session bus, which tarvel-cli brings itself when needed.
        for (const char* variable : {"DBUS_SESSION_BUS_ADDRESS", "DISPLAY", "XDG_RUNTIME_DIR"})
            state.station.environment().remove(variable);
        if (cell_.sessionBus) {
            bus = std::make_unique<testing_support::PrivateBus>();
            state.station.environment().insert("DBUS_SESSION_BUS_ADDRESS", bus->address());
        }
        state.useEventScript();
        simulatorGone = cell_.interrupt == Interrupt::SimulatorNeverStarted;
        if (!simulatorGone) {
            ASSERT_FALSE(state.station.start({"--station", stationFile}).isEmpty());
        }
        state.station.environment().insert("TARVEL_TEST_MARK", mark);
    }

    QStringList arguments(const QStringList& command) const {
        QStringList resolved;
        for (const QString& argument : command)
            resolved << (argument == "{history}" ? state.historyPath() : argument);
        return resolved;
    }

    // Runs the command, interrupting it as the cell says.
    Outcome run(const QStringList& command, Interrupt interrupt) {
        QProcess cli;
        QElapsedTimer clock;
        clock.start();
        EXPECT_TRUE(state.station.startCli(cli, arguments(command)));
        QByteArray output;
        if (interrupt == Interrupt::RestartSimulator) {
            restartSimulator(cli, output);
        } else if (interrupt != Interrupt::None && interrupt != Interrupt::SimulatorNeverStarted) {
            for (const QByteArray& wanted : cell_.at)
                EXPECT_TRUE(testing_support::readOutputUntil(cli, output, wanted,
                                                             cell_.boundSeconds * 1000))
                    << "never saw " << wanted.toStdString() << " in " << output.toStdString();
            act(cli, interrupt);
        }
        const QDeadlineTimer deadline(cell_.boundSeconds * 1000);
        while (cli.state() == QProcess::Running && !deadline.hasExpired()) cli.waitForFinished(100);
        if (cli.state() == QProcess::Running) {
            ADD_FAILURE() << "still running after " << cell_.boundSeconds << " s";
            cli.kill();
            cli.waitForFinished();
        }
        Outcome outcome;
        outcome.milliseconds = clock.elapsed();
        outcome.exit = cli.exitStatus() == QProcess::NormalExit ? cli.exitCode() : -1;
        if (interrupt != Interrupt::RestartSimulator)
            output += cli.readAllStandardOutput();
        outcome.output = QString::fromUtf8(output);
        outcome.errors = QString::fromUtf8(restartErrors + cli.readAllStandardError());
        return outcome;
    }

    void act(QProcess& cli, Interrupt interrupt) {
        switch (interrupt) {
            case Interrupt::DoubleSigint:
                ::kill(pid_t(cli.processId()), SIGINT);
                QThread::msleep(200);
                [[fallthrough]];
            case Interrupt::Sigint:
                ::kill(pid_t(cli.processId()), SIGINT);
                break;
            case Interrupt::Sigkill:
                cli.kill();
                break;
            case Interrupt::KillSimulator:
                state.station.simulator().kill();
                state.station.simulator().waitForFinished();
                simulatorGone = true;
                break;
            default:
                break;
        }
    }

    // Restarts the simulator under a following watch; what the watch printed until it was back
    // is the run's output, and a port cycled afterwards must reach it.
    void restartSimulator(QProcess& cli, QByteArray& output) {
        testing_support::readOutputUntil(cli, output, "deviceAdded", 10000);
        QThread::msleep(300);  // the watch has listed what is attached
        state.station.simulator().kill();
        state.station.simulator().waitForFinished();
        EXPECT_FALSE(state.station.start({"--station", stationFile}).isEmpty());
        const QDeadlineTimer deadline(10000);
        while (!restartErrors.contains("is back") && !deadline.hasExpired()) {
            cli.waitForReadyRead(100);
            restartErrors += cli.readAllStandardError();
        }
        QThread::msleep(500);  // anything it would wrongly report comes now
        output += cli.readAllStandardOutput();
        EXPECT_EQ(state.station.cli({"port", "disable", "1C3B4A01:1"}).exitCode, 0);
        QByteArray afterwards;
        EXPECT_TRUE(testing_support::readOutputUntil(cli, afterwards, "deviceRemoved", 5000))
            << "the watch is back, but does not hear the bus";
        cli.terminate();
    }

    void checkWhatWasPrinted(const Outcome& outcome, const QStringList& command) const;
    void checkTheStation(const Outcome& outcome, const QStringList& command, const QString& first);

    const Cell cell_;
    std::unique_ptr<testing_support::PrivateBus> bus;
    faults::StationState state{cell_.station};
    QString stationFile;
    bool simulatorGone = false;
    QByteArray restartErrors;
    const QByteArray mark = QUuid::createUuid().toByteArray(QUuid::WithoutBraces);
};

bool isJsonLines(const QStringList& command) {
    static const QStringList withLines = {"dfu",     "restart", "recovery", "power-mode",
                                          "restore", "auto",    "watch"};
    return command.contains("--json") &&
           std::any_of(withLines.begin(), withLines.end(),
                       [&](const QString& word) { return command.contains(word); });
}

void FaultMatrix::checkWhatWasPrinted(const Outcome& outcome, const QStringList& command) const {
    const QString said = outcome.output + '\n' + outcome.errors;
    for (const QString& text : cell_.said)
        EXPECT_TRUE(said.contains(text)) << "says " << text.toStdString();
    for (const QString& text : cell_.notSaid)
        EXPECT_FALSE(said.contains(text)) << "never says " << text.toStdString();
    // What went wrong is logged, and a failure once, not again by each layer it passes.
    const qsizetype logged = state.station.log().count(cell_.logged);
    if (!cell_.logged.isEmpty()) {
        EXPECT_TRUE(outcome.exit == 0 ? logged > 0 : logged == 1)
            << "logs " << cell_.logged.toStdString();
    }
    // A run that ends in failure of its own accord says why; one stopped by Ctrl-C sums up.
    const bool stopped =
        cell_.interrupt == Interrupt::Sigint || cell_.interrupt == Interrupt::DoubleSigint;
    if (outcome.exit > 0 && !stopped)
        faults::checkOneReason(outcome.errors, state.station.log());
    EXPECT_FALSE(outcome.output.contains('\x1b')) << "piped output has no control characters";
    faults::checkWarningsOnce(outcome.output);
    if (isJsonLines(command)) {
        faults::checkJsonLines(outcome.output);
        if (!command.contains("watch") && cell_.interrupt != Interrupt::RestartSimulator)
            faults::checkOutcomeLine(outcome.output, outcome.exit);
    }
    if (command.contains("--parallel"))
        faults::checkLanesOverlap(outcome.output, int(cell_.station.hubs().size()));
    const auto verdict = faults::lastEvent(outcome.output, "verdict");
    if (command.contains("--all") && command.contains("--json")) {
        ASSERT_TRUE(verdict) << "a sequence ends with its verdict";
        faults::checkVerdict(*verdict, cell_.station.portNames(), outcome.exit);
    }
}

void FaultMatrix::checkTheStation(const Outcome& outcome, const QStringList& command,
                                  const QString& first) {
    if (command.first() == "restore" && command.contains("{history}"))
        state.checkHistory(outcome.exit, simulatorGone, cell_.interrupt == Interrupt::None);
    if (cell_.interrupt == Interrupt::Sigkill && cell_.command.first() == "restore")
        state.checkRecordsKeep(first);
    if (simulatorGone || cell_.interrupt == Interrupt::RestartSimulator)
        return;
    if (command.first() == "devices" && outcome.exit == 0)
        state.checkEveryMacInDfuListed(outcome.output);
    state.checkNoMacLeftRestoring();
    state.checkMacsEnd(cell_.macsEnd);
    const auto verdict = faults::lastEvent(outcome.output, "verdict");
    state.checkDisabledPortsWereSaid(verdict, outcome.output + outcome.errors);
    if (outcome.exit == 0 && command.contains("--all"))
        state.checkMacsInTheModeAskedFor(command);
}

void FaultMatrix::TestBody() {
    for (const QString& before : cell_.before) {
        const auto done = state.station.cli(before.split(' '));
        ASSERT_EQ(done.exitCode, 0)
            << before.toStdString() << ": " << done.standardError.toStdString();
    }
    const Outcome first = run(cell_.command, cell_.interrupt);
    const bool rerun = cell_.interrupt == Interrupt::Sigkill;
    const Outcome outcome = rerun ? run(cell_.rerun, Interrupt::None) : first;
    const QStringList& command = rerun ? cell_.rerun : cell_.command;
    SCOPED_TRACE((outcome.output + '\n' + outcome.errors).toStdString());

    if (cell_.interrupt != Interrupt::RestartSimulator) {
        EXPECT_EQ(outcome.exit, cell_.exit) << "the exit status";
    }
    EXPECT_LT(outcome.milliseconds, cell_.boundSeconds * 1000);
    checkWhatWasPrinted(outcome, command);
    checkTheStation(outcome, command, first.output);

    // A helper the run started on a desktop's session bus is that bus's service, and stays.
    if (cell_.sessionBus)
        return;
    const qint64 simulator = state.station.simulator().processId();
    const QDeadlineTimer deadline(5000);
    while (!faults::processesMarked(mark, simulator).isEmpty() && !deadline.hasExpired())
        QThread::msleep(50);
    EXPECT_EQ(faults::processesMarked(mark, simulator), QStringList()) << "left running";
}

// One test a cell, named after it, so each runs as a test of its own.
const bool registered = [] {
    for (const Cell& cell : faults::faultCells())
        ::testing::RegisterTest("FaultMatrix", cell.name, nullptr, nullptr, __FILE__, __LINE__,
                                [cell]() -> ::testing::Test* { return new FaultMatrix(cell); });
    return true;
}();

}  // namespace
