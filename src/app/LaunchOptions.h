#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace app {

// The desktop application's command line: tarvel [--simulate[=SOCKET]] [--version] [--help].
struct LaunchOptions {
    std::optional<QString> simulatorSocket;  // --simulate alone names the default socket
    bool showVersion = false;
    bool showHelp = false;
    QString error;  // the argument that was not understood, explained

    // `arguments` without the program name. TARVEL_SIM selects the simulator too, as it does
    // for every other Tarvel program.
    static LaunchOptions parse(const QStringList& arguments);
    static QString usage();
};

}  // namespace app
