// tarvel-sim-cfgutil [--format plist|json] [--progress] [-e ECID] [-I PATH] list|restore
//
// Stands in for Apple Configurator's cfgutil on a station simulated by tarvel-sim (TARVEL_SIM
// names its socket). Terminated mid-restore, it stops the simulator's restore and then dies by the
// signal, as the real tool does.
#include "CfgutilFront.h"

#include "core/SimulatorAddress.h"

#include "../StandInSignals.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QString error;
    const std::optional<simcfgutil::Options> options =
        simcfgutil::parseOptions(app.arguments().mid(1), &error);
    if (!options) {
        std::fprintf(stderr, "cfgutil: error: %s\n", qPrintable(error));
        return 2;
    }
    const std::optional<QString> socket = core::simulatorSocketFromEnvironment();
    if (!socket) {
        std::fprintf(stderr, "cfgutil: error: TARVEL_SIM does not name a simulator socket\n");
        return 1;
    }
    core::SimulatorConnection simulator(*socket);
    simcfgutil::CfgutilFront front(simulator, *options);
    if (options->command == "list")
        return front.list();

    if (::pipe2(standin::signalPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return 1;
    for (int number : {SIGTERM, SIGINT, SIGHUP}) signal(number, standin::onSignal);
    QSocketNotifier signalNotifier(standin::signalPipe[0], QSocketNotifier::Read);
    QObject::connect(&signalNotifier, &QSocketNotifier::activated, [&] {
        unsigned char number = 0;
        if (::read(standin::signalPipe[0], &number, 1) != 1)
            return;
        front.cancel();
        standin::dieBy(number);
    });
    QObject::connect(&front, &simcfgutil::CfgutilFront::finished, &app, [](int status) {
        std::fflush(stdout);
        QCoreApplication::exit(status);
    });
    if (const std::optional<int> status = front.startRestore())
        return *status;
    return QCoreApplication::exec();
}
