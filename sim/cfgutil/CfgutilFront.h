#pragma once

#include "core/SimulatorConnection.h"

#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <optional>

namespace simcfgutil {

// The command line the Configurator code gives the tool.
struct Options {
    QString format = QStringLiteral("text");  // text, plist or json
    bool progress = false;
    std::optional<std::uint64_t> ecid;
    QString ipsw;
    QString command;  // list or restore
};

// Answers nothing, with `error` set, for a command line the real tool would refuse.
std::optional<Options> parseOptions(const QStringList& arguments, QString* error);

// Plays `cfgutil` against the simulator: the listing from "macs.list", a restore from
// "mac.restore" and its "restore" events.
class CfgutilFront : public QObject {
    Q_OBJECT
  public:
    CfgutilFront(core::SimulatorConnection& simulator, Options options);

    // Prints the listing; answers the exit status.
    int list();
    // Starts the restore; finished() follows, or an exit status at once when it cannot start.
    std::optional<int> startRestore();
    // Stops the simulator's restore, if this front started one.
    void cancel();

  signals:
    void finished(int status);

  private:
    void onEvent(const QString& name, const QJsonObject& payload);
    std::optional<QJsonObject> pickMac(QString* error);
    int failure(const QString& message, int code = 1);
    void write(const QByteArray& bytes);
    void writeBuffered(const QByteArray& bytes);

    core::SimulatorConnection& simulator_;
    Options options_;
    QString ecidText_;
    bool running_ = false;
    bool garbled_ = false;
};

}  // namespace simcfgutil
