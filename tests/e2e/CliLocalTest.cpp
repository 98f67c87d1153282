#include "support/PrivateBus.h"
#include "support/SimulatedStation.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QThread>
#include <QUuid>

#include <gtest/gtest.h>

#include <signal.h>

namespace {

using testing_support::ProcessResult;

// Three Macs a technician plugs into this computer's DFU port one after another, each pulled
// out a while after its restore succeeded (times in simulated seconds).
const QByteArray threeMacs = R"({
  "timing": {"restoreSeconds": 20, "bootSeconds": 6, "dfuSeconds": 2, "reenumerateSeconds": 1},
  "hubs": [],
  "localDFU": [
    {"ecid": "0x1A0001", "serialNumber": "LOCAL1", "unplugAfterRestore": 100},
    {"ecid": "0x1A0002", "serialNumber": "LOCAL2", "plugAfter": 50, "unplugAfterRestore": 100},
    {"ecid": "0x1A0003", "serialNumber": "LOCAL3", "plugAfter": 50}
  ]})";

// tarvel-cli against the simulator, with a private bus as its session bus, where it starts the
// simulated helper.
class CliLocal : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(bus.isRunning());
        station_.environment().insert("DBUS_SESSION_BUS_ADDRESS", bus.address());
        station_.setPreference("timeBetweenProcesses", "0");
        station_.setPreference("shouldPlaySound", false);
    }
    QString localMacState() { return station_.macs().last().toObject().value("state").toString(); }

    testing_support::PrivateBus bus;
    testing_support::SimulatedStation station_;
};

TEST_F(CliLocal, DfuPutsTheMacOnTheLocalPortIntoDFUModeThroughTheHelper) {
    ASSERT_FALSE(station_.start().isEmpty());
    const ProcessResult run = station_.cli({"local", "dfu"});
    EXPECT_EQ(run.exitCode, 0) << run.standardError.toStdString();
    EXPECT_EQ(run.standardOutput, "The Mac on the DFU port is entering DFU mode.\n");
    const QDeadlineTimer deadline(10000);
    while (localMacState() != "dfu" && !deadline.hasExpired()) QThread::msleep(50);
    EXPECT_EQ(localMacState(), "dfu");

    const ProcessResult status = station_.cli({"local", "helper", "status"});
    EXPECT_EQ(status.exitCode, 0);
    EXPECT_EQ(status.standardOutput, "installed: yes\nversion: 100 (expected 100)\n");
}

// The processes whose environment carries the mark: what a run left behind.
QStringList processesMarked(const QString& mark) {
    QStringList found;
    const QByteArray entry = "TARVEL_TEST_MARK=" + mark.toUtf8();
    for (const QString& pid : QDir("/proc").entryList({"[0-9]*"}, QDir::Dirs)) {
        QFile environ("/proc/" + pid + "/environ");
        if (environ.open(QIODevice::ReadOnly) && environ.readAll().split('\0').contains(entry))
            found << pid;
    }
    return found;
}

// A plain terminal (SSH, CI) has no session bus: tarvel-cli brings one for the simulated helper
// and takes it, and the helper on it, away again when it ends.
TEST_F(CliLocal, DfuWorksWithoutASessionBusAndLeavesNothingRunning) {
    ASSERT_FALSE(station_.start().isEmpty());
    for (const char* variable : {"DBUS_SESSION_BUS_ADDRESS", "DISPLAY", "XDG_RUNTIME_DIR"})
        station_.environment().remove(variable);
    const QString mark = QUuid::createUuid().toString(QUuid::WithoutBraces);
    station_.environment().insert("TARVEL_TEST_MARK", mark);

    const ProcessResult run = station_.cli({"local", "dfu"});
    EXPECT_EQ(run.exitCode, 0) << run.standardError.toStdString();
    EXPECT_EQ(run.standardOutput, "The Mac on the DFU port is entering DFU mode.\n");
    const QDeadlineTimer deadline(10000);
    while (localMacState() != "dfu" && !deadline.hasExpired()) QThread::msleep(50);
    EXPECT_EQ(localMacState(), "dfu");
    const QDeadlineTimer cleanup(5000);
    while (!processesMarked(mark).isEmpty() && !cleanup.hasExpired()) QThread::msleep(50);
    EXPECT_EQ(processesMarked(mark), QStringList());
}

TEST_F(CliLocal, AutoRestoresThreeMacsPluggedInOneAfterAnother) {
    ASSERT_FALSE(station_.start({"--station", station_.writeStation(threeMacs)}).isEmpty());
    QProcess cycle;
    ASSERT_TRUE(station_.startCli(cycle, {"local", "auto", "--restore"}));
    QByteArray output;
    testing_support::readOutputUntil(cycle, output, "(3 restored so far)", 150000);
    ::kill(static_cast<pid_t>(cycle.processId()), SIGINT);
    ASSERT_TRUE(cycle.waitForFinished(15000));
    output += cycle.readAllStandardOutput();
    const std::string shown = output.toStdString();
    EXPECT_EQ(cycle.exitCode(), 0) << shown;
    for (const char* line :
         {"restored 0x1A0001 (1 restored so far)", "restored 0x1A0002 (2 restored so far)",
          "restored 0x1A0003 (3 restored so far)", "3 restored, 0 failed, 0 cancelled"})
        EXPECT_TRUE(output.contains(line)) << line << "\n" << shown;
    EXPECT_TRUE(output.contains("device unplugged. setting to check")) << shown;
}

}  // namespace
