#include "support/SimulatedStation.h"

#include "core/SimulatorConnection.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QJsonValue>
#include <QSettings>

namespace testing_support {

SimulatedStation::SimulatedStation() : socket_(folder_.filePath("sim.sock")) {
    QDir().mkpath(logFolder());
    setPreference("LogFolderPath", logFolder());
    // Cells name the idevicerestore engine where they mean it; the rest pin Apple Configurator's.
    setPreference("restoreEngine", "cfgutil");
    environment_.insert("XDG_CONFIG_HOME", folder_.filePath("config"));
    environment_.insert("XDG_STATE_HOME", folder_.filePath("state"));
    environment_.remove("TARVEL_SIM");
    environment_.remove("TARVEL_CFGUTIL");
    environment_.remove("TARVEL_IDEVICERESTORE");
    environment_.remove("LD_PRELOAD");  // a test run under umockdev must not hand it on
}

SimulatedStation::~SimulatedStation() {
    if (simulator_.state() == QProcess::NotRunning)
        return;
    simulator_.kill();
    simulator_.waitForFinished();
}

QString SimulatedStation::start(const QStringList& arguments, double speed) {
    simulator_.setProcessEnvironment(environment_);
    simulator_.start(
        executablePath("tarvel-sim"),
        QStringList{"--socket", socket_, "--speed", QString::number(speed)} + arguments);
    if (!simulator_.waitForStarted(5000))
        return {};
    const QDeadlineTimer deadline(5000);
    while (!simulator_.canReadLine() && !deadline.hasExpired()) simulator_.waitForReadyRead(100);
    return QString::fromUtf8(simulator_.readLine()).trimmed();
}

ProcessResult SimulatedStation::cli(const QStringList& arguments) const {
    return runExecutable("tarvel-cli", QStringList{"--simulate=" + socket_} + arguments,
                         environment_);
}

bool SimulatedStation::startCli(QProcess& process, const QStringList& arguments) const {
    process.setProcessEnvironment(environment_);
    process.start(executablePath("tarvel-cli"), QStringList{"--simulate=" + socket_} + arguments);
    return process.waitForStarted(5000);
}

ProcessResult SimulatedStation::cliWithoutSimulator(const QStringList& arguments) const {
    return runExecutable("tarvel-cli", arguments, environment_);
}

QString SimulatedStation::writeStation(const QByteArray& json) const {
    QFile file(folder_.filePath("station.json"));
    if (file.open(QIODevice::WriteOnly))
        file.write(json);
    return file.fileName();
}

QJsonArray SimulatedStation::macs() const {
    core::SimulatorConnection connection(socket_);
    const auto reply = connection.request("macs.list");
    return reply ? reply->value("macs").toArray() : QJsonArray();
}

QString SimulatedStation::log() const {
    QString text;
    for (const QFileInfo& file : QDir(logFolder()).entryInfoList(QDir::Files)) {
        QFile log(file.filePath());
        if (log.open(QIODevice::ReadOnly))
            text += QString::fromUtf8(log.readAll());
    }
    return text;
}

void SimulatedStation::setPreference(const QString& key, const QVariant& value) const {
    QSettings store(folder_.filePath("config/kestrune.com/Tarvel.conf"), QSettings::IniFormat);
    store.setValue(key, value);
}

}  // namespace testing_support
