#include "StationConfig.h"
#include "support/SimulatedStation.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace idevicerestore_front_test {

using testing_support::ProcessResult;

const QString versionLine =
    QStringLiteral("idevicerestore 1.0.0-270-g405fcd1 (libirecovery 1.3.0, libtatsu 1.0.5)");

// The stand-in run in `folder`, where it writes its log when no --logfile names one.
ProcessResult runIn(const QString& folder, const QStringList& arguments,
                    QProcessEnvironment environment, const QString& socket) {
    environment.insert("TARVEL_SIM", socket);
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(folder);
    process.start(testing_support::executablePath("tarvel-sim-idevicerestore"), arguments);
    ProcessResult result;
    if (!process.waitForStarted(10000) || !process.waitForFinished(30000)) {
        process.kill();
        process.waitForFinished();
        return result;
    }
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.standardOutput = QString::fromUtf8(process.readAllStandardOutput());
    result.standardError = QString::fromUtf8(process.readAllStandardError());
    return result;
}

QString macState(const testing_support::SimulatedStation& station, const QString& ecid) {
    for (const QJsonValue& mac : station.macs())
        if (mac["ecid"].toString() == ecid)
            return mac["state"].toString();
    return {};
}

QString readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

// The idevicerestore fields of a station file are checked like every other field.
TEST(IdevicerestoreStandIn, StationFieldsRefuseWhatTheToolCannotPlay) {
    const sim::StationLoad load = sim::parseStation(R"({
      "idevicerestore": {"errorStyle": "fancy", "version": "", "colour": 1},
      "hubs": [{"serial": 1, "macs": [{"port": 1, "ecid": "0x11", "serialNumber": "A",
                                       "engineFault": "slowSigning"}]}]})",
                                                    "bench.json");
    EXPECT_EQ(load.errors,
              QStringList({"bench.json: idevicerestore.colour: unknown field (known fields: "
                           "errorStyle, version)",
                           "bench.json: idevicerestore.errorStyle: must be one of new, old",
                           "bench.json: idevicerestore.version: must be one line of 1 to 100 "
                           "characters",
                           "bench.json: hubs[0].macs[0].engineFault: must be one of "
                           "unknownDeviceType, signingRefused, restoreModeTimeout, ignoresTerm"}));
}

struct OptionLine {
    QStringList arguments;
    int exitCode;
    QString said;     // in standard output (accepted) or standard error (refused)
    QString logName;  // the start of the log's name in the working folder, for accepted lines
};

// Accepted lines reach the firmware check, which fails on a missing file after the version line,
// before any Mac is touched; the log named after the ECID shows how the ECID was read.
TEST(IdevicerestoreStandIn, ReadsItsCommandLineAsTheRealToolDoes) {
    testing_support::SimulatedStation station;
    ASSERT_EQ(station.start(), station.socket());
    const QString missing = QStringLiteral("Firmware file missing.ipsw cannot be opened.");
    const QList<OptionLine> lines = {
        {{"-i", "0x1A2B", "-e", "-y", "-P", "-C", "cache", "missing.ipsw"},
         255,
         missing,
         "restore_1A2B_"},
        {{"--ecid", "6699", "--erase", "--no-input", "--plain-progress", "--cache-path=cache",
          "missing.ipsw"},
         255,
         missing,
         "restore_1A2B_"},
        {{"-eyP", "-i0X1a2b", "missing.ipsw"}, 255, missing, "restore_1A2B_"},
        {{"missing.ipsw", "-i", "015053"}, 255, missing, "restore_1A2B_"},
        {{"--ecid=0xFFFFFFFFFFFFFFFF", "missing.ipsw"}, 255, missing, "restore_FFFFFFFFFFFFFFFF_"},
        {{"-i", "1", "--", "-missing.ipsw"},
         255,
         "Firmware file -missing.ipsw cannot be opened.",
         "restore_1_"},
        {{"-v"}, 0, versionLine, ""},
        {{"--bogus", "x"}, 1, "unrecognized option '--bogus'", ""},
        {{"-ex", "x"}, 1, "invalid option -- 'x'", ""},
        {{"-e", "-i"}, 1, "option requires an argument -- 'i'", ""},
        {{"--logfile"}, 1, "option '--logfile' requires an argument", ""},
        {{"--erase=yes", "x"}, 1, "option '--erase' doesn't allow an argument", ""},
        {{"-i", "0x12zz", "x"}, 1, "Could not parse ECID from '0x12zz'", ""},
        {{"-i", "08", "x"}, 1, "Could not parse ECID from '08'", ""},
        {{"-i", "0", "x"}, 1, "Could not parse ECID from '0'", ""},
        {{"-e", "-y"}, 1, "no firmware given", ""},
        {{"a.ipsw", "b.ipsw"}, 1, "one firmware only", ""},
    };
    for (const OptionLine& line : lines) {
        const QString described = line.arguments.join(' ');
        QTemporaryDir folder;
        const ProcessResult result =
            runIn(folder.path(), line.arguments, station.environment(), station.socket());
        EXPECT_EQ(result.exitCode, line.exitCode) << described.toStdString();
        const QString& stream = line.exitCode == 1 ? result.standardError : result.standardOutput;
        EXPECT_TRUE(stream.contains(line.said)) << described.toStdString() << "\n"
                                                << stream.toStdString();
        if (line.exitCode == 1)
            EXPECT_TRUE(result.standardOutput.isEmpty()) << described.toStdString();
        else
            EXPECT_TRUE(result.standardOutput.startsWith(versionLine + "\n"));
        const QStringList logs = QDir(folder.path()).entryList({"restore_*.log"}, QDir::Files);
        if (line.logName.isEmpty())
            EXPECT_TRUE(logs.isEmpty()) << described.toStdString();
        else
            EXPECT_TRUE(logs.size() == 1 && logs.front().startsWith(line.logName))
                << described.toStdString() << ": " << logs.join(' ').toStdString();
    }
}

const QByteArray stationJson = R"({
  "timing": {"restoreSeconds": 10},
  "hubs": [{"serial": "0x1C3B4A01", "macs": [
    {"port": 1, "ecid": "0x11", "serialNumber": "C02S1", "deviceType": "Mac14,3", "state": "dfu"},
    {"port": 2, "ecid": "0x12", "serialNumber": "C02S2", "state": "dfu",
     "engineFault": "signingRefused"},
    {"port": 3, "ecid": "0x13", "serialNumber": "C02S3", "state": "recovery",
     "restoreFailure": {"atProgress": 0.7, "status": 21, "message": "Status: Disk Failure"}}]}]
})";

// A restore the simulator completes reads, line by line, as the real tool's successful run; the
// log keeps every line with its time.
TEST(IdevicerestoreStandIn, ASucceedingRestoreEndsInDoneWithPlainProgress) {
    testing_support::SimulatedStation station;
    ASSERT_EQ(station.start({"--station", station.writeStation(stationJson)}), station.socket());
    QTemporaryDir folder;
    const QString log = folder.filePath("mac.log");
    const ProcessResult result = runIn(
        folder.path(),
        {"-i", "0x11", "-e", "-y", "-P", "--logfile=" + log, "-C", folder.path(), folder.path()},
        station.environment(), station.socket());
    EXPECT_EQ(result.exitCode, 0) << result.standardOutput.toStdString();
    EXPECT_TRUE(result.standardError.isEmpty());
    const QStringList printed = result.standardOutput.split('\n');
    const QStringList milestones = {versionLine,
                                    "Found device in DFU mode",
                                    "ECID: 17",
                                    "Identified device as j473ap, Mac14,3",
                                    "Received SHSH blobs",
                                    "Sending iBSS (1048576 bytes)...",
                                    "Uploading: 100.0",
                                    "Found device in Recovery mode",
                                    "Recovery serial: SRNM:[C02S1]",
                                    "Waiting for device to enter restore mode...",
                                    "Device 00008112-0000000000000011 has successfully entered "
                                    "restore mode",
                                    "progress: 2 0.000000",
                                    "progress: 2 0.545455",
                                    "progress: 2 1.000000",
                                    "progress: 4 1.000000",
                                    "Status: Restore Finished",
                                    "DONE",
                                    "progress: 7 1.000000",
                                    ""};
    qsizetype at = 0;
    for (const QString& milestone : milestones) {
        at = printed.indexOf(milestone, at);
        ASSERT_GE(at, 0) << "missing or out of order: " << milestone.toStdString();
    }
    EXPECT_EQ(at, printed.size() - 1) << "nothing follows the last progress line";
    const QString logged = readFile(log);
    EXPECT_EQ(logged.count('\n'), printed.size() - 1);
    EXPECT_TRUE(logged.contains(QRegularExpression("\\d\\d:\\d\\d:\\d\\d DONE\n")));
}

// An older build prints errors on stderr after "ERROR: ": a refused signing ends the run before
// the simulator is asked for a restore, and a failing restore ends with the station's message.
TEST(IdevicerestoreStandIn, FailuresEndWithTheirErrorLineInTheStationsStyle) {
    QByteArray json = stationJson;
    json.replace(
        R"("timing")",
        R"("idevicerestore": {"errorStyle": "old", "version": "1.0.0-265-gabc"}, "timing")");
    testing_support::SimulatedStation station;
    ASSERT_EQ(station.start({"--station", station.writeStation(json)}), station.socket());
    QTemporaryDir folder;
    const QString log = folder.filePath("mac.log");

    const ProcessResult refused =
        runIn(folder.path(), {"-i", "18", "-ey", "-P", "--logfile", log, folder.path()},
              station.environment(), station.socket());
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_TRUE(refused.standardOutput.startsWith(
        "idevicerestore 1.0.0-265-gabc (libirecovery 1.3.0, libtatsu 1.0.5)\n"));
    EXPECT_TRUE(refused.standardOutput.endsWith("Trying to fetch new SHSH blob\n"));
    EXPECT_EQ(refused.standardError, "ERROR: Unable to get SHSH blobs for this device\n");
    EXPECT_TRUE(readFile(log).endsWith(" <Error> Unable to get SHSH blobs for this device\n"));
    EXPECT_EQ(macState(station, "0x12"), "dfu") << "no restore was asked";

    const ProcessResult failed = runIn(folder.path(), {"-i", "0x13", "-e", "-y", folder.path()},
                                       station.environment(), station.socket());
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_TRUE(failed.standardOutput.contains("Found device in Recovery mode\n"));
    EXPECT_TRUE(failed.standardOutput.contains("\rSending filesystem ["));
    EXPECT_EQ(failed.standardError, "ERROR: Status: Disk Failure\n");
}

}  // namespace idevicerestore_front_test
