#pragma once

#include "support/ProcessRun.h"

#include <QJsonArray>
#include <QProcess>
#include <QTemporaryDir>

namespace testing_support {

// A real tarvel-sim on a socket of its own, with a private preferences store and log folder for
// the tarvel-cli runs that talk to it. Stops the simulator when it goes.
class SimulatedStation {
  public:
    SimulatedStation();
    ~SimulatedStation();

    // Starts tarvel-sim and answers the socket path it printed on its first line (empty when it
    // did not start).
    QString start(const QStringList& arguments = {}, double speed = 50);
    // Runs tarvel-cli against this station.
    ProcessResult cli(const QStringList& arguments) const;
    // Starts tarvel-cli against this station and leaves it running; answers whether it started.
    bool startCli(QProcess& process, const QStringList& arguments) const;
    // Runs tarvel-cli with this station's preferences and log folder but no --simulate.
    ProcessResult cliWithoutSimulator(const QStringList& arguments) const;
    // Writes a station file into the private folder and answers its path.
    QString writeStation(const QByteArray& json) const;
    // The simulator's Macs as "macs.list" answers them.
    QJsonArray macs() const;
    // Sets a preference in this station's private store.
    void setPreference(const QString& key, const QVariant& value) const;

    QString socket() const { return socket_; }
    // The folder the LogFolderPath preference names (it exists from the start).
    QString logFolder() const { return folder_.filePath("logs"); }
    // The restore records database of the tarvel-cli runs (in their own state folder).
    QString recordsDatabase() const { return folder_.filePath("state/tarvel/records.sqlite"); }
    // Everything written to the log folder so far.
    QString log() const;
    QProcess& simulator() { return simulator_; }
    QProcessEnvironment& environment() { return environment_; }

  private:
    QTemporaryDir folder_;
    QProcessEnvironment environment_ = QProcessEnvironment::systemEnvironment();
    QString socket_;
    QProcess simulator_;
};

}  // namespace testing_support
