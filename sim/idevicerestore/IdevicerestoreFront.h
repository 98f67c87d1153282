#pragma once

#include "RestoreOptions.h"
#include "RestoreOutput.h"

#include "core/SimulatorConnection.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QJsonObject>
#include <QObject>
#include <QString>

#include <cstdint>

namespace simidevicerestore {

// Plays `idevicerestore` for one Mac against the simulator: finds the Mac in "macs.list", prints
// what the real tool prints before it touches the device, then follows the simulator's "restore"
// events with the tool's own stages, and fails where the Mac's engine fault says the tool fails.
class IdevicerestoreFront : public QObject {
    Q_OBJECT
  public:
    // `simulator` may be null for the version alone: the tool's defaults are printed then.
    IdevicerestoreFront(core::SimulatorConnection* simulator, Options options,
                        RestoreOutput& output);

    // Prints the version line; answers the exit status.
    int printVersion();
    // Runs the restore; finished() follows.
    void start();
    // What a termination signal does now; true when the process should die by it. Stops the
    // simulator's restore first, if this front started one.
    bool acceptTermination(int signal);

  signals:
    void finished(int status);

  private:
    void loadToolOptions();
    void discover();
    void identify(const QJsonObject& mac);
    void askRestore();
    void onEvent(const QString& name, const QJsonObject& payload);
    void onProgress(double progress);
    void onFinished(int status, const QString& message);
    void sendBootStages(int percent);
    void enterRestoreMode();
    void sendFilesystem(int percent);
    void waitForRestoreMode();
    void cancelRestore();
    void fail(const QString& message, int status = 1);

    core::SimulatorConnection* simulator_;
    Options options_;
    RestoreOutput& output_;
    QString version_ = QStringLiteral("1.0.0-270-g405fcd1");
    double speed_ = 1.0;
    QDeadlineTimer discoveryDeadline_;
    QJsonObject mac_;
    QString ecidText_;
    bool running_ = false;
    bool hanging_ = false;
    bool told_ = false;
    bool done_ = false;
    QElapsedTimer sinceLastEvent_;
    qint64 lastGapMilliseconds_ = 0;
};

}  // namespace simidevicerestore
