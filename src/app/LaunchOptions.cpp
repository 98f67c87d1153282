#include "app/LaunchOptions.h"

#include "core/SimulatorAddress.h"

namespace app {

LaunchOptions LaunchOptions::parse(const QStringList& arguments) {
    LaunchOptions options;
    options.simulatorSocket = core::simulatorSocketFromEnvironment();
    const QString simulate = QStringLiteral("--simulate");
    for (const QString& argument : arguments) {
        if (argument == simulate) {
            options.simulatorSocket = core::defaultSimulatorSocketPath();
        } else if (argument.startsWith(simulate + QLatin1Char('='))) {
            options.simulatorSocket = argument.mid(simulate.size() + 1);
            if (options.simulatorSocket->isEmpty())
                options.error = QStringLiteral("--simulate= needs a socket path");
        } else if (argument == QLatin1String("--version")) {
            options.showVersion = true;
        } else if (argument == QLatin1String("--help") || argument == QLatin1String("-h")) {
            options.showHelp = true;
        } else {
            options.error = QStringLiteral("unknown argument %1").arg(argument);
        }
        if (!options.error.isEmpty())
            break;
    }
    return options;
}

QString LaunchOptions::usage() {
    return QStringLiteral(
        "Usage: tarvel [--simulate[=SOCKET]] [--version] [--help]\n"
        "  --simulate[=SOCKET]  drive tarvel-sim instead of real hardware (TARVEL_SIM does the "
        "same)\n"
        "  --version            print the version and quit\n");
}

}  // namespace app
