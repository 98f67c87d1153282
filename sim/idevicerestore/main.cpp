// tarvel-sim-idevicerestore -i ECID -e -y -P [--logfile PATH] [-C DIR] PATH
//
// Stands in for libimobiledevice's idevicerestore on a station simulated by tarvel-sim (TARVEL_SIM
// names its socket), speaking the real tool's output so that the engine's parser meets the real
// format. Terminated mid-restore, it stops the simulator's restore and then dies by the signal.
#include "IdevicerestoreFront.h"

#include "core/SimulatorAddress.h"

#include "../StandInSignals.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QSocketNotifier>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QString program = QFileInfo(app.arguments().value(0)).fileName();
    const simidevicerestore::OptionsParse parse =
        simidevicerestore::parseOptions(app.arguments().mid(1));
    if (!parse.options) {
        std::fprintf(stderr, "%s: %s\n%s", qPrintable(program), qPrintable(parse.error),
                     qPrintable(simidevicerestore::usageText(program)));
        return 1;
    }
    if (parse.options->showHelp) {
        std::fputs(qPrintable(simidevicerestore::usageText(program)), stdout);
        return 0;
    }
    const std::optional<QString> socket = core::simulatorSocketFromEnvironment();
    std::unique_ptr<core::SimulatorConnection> simulator;
    if (socket)
        simulator = std::make_unique<core::SimulatorConnection>(*socket);
    simidevicerestore::RestoreOutput output;
    simidevicerestore::IdevicerestoreFront front(simulator.get(), *parse.options, output);
    if (parse.options->showVersion)
        return front.printVersion();
    if (!simulator) {
        std::fprintf(stderr, "%s: TARVEL_SIM does not name a simulator socket\n",
                     qPrintable(program));
        return 1;
    }

    if (::pipe2(standin::signalPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return 1;
    for (int number : {SIGTERM, SIGINT, SIGHUP}) signal(number, standin::onSignal);
    QSocketNotifier signalNotifier(standin::signalPipe[0], QSocketNotifier::Read);
    QObject::connect(&signalNotifier, &QSocketNotifier::activated, [&] {
        unsigned char number = 0;
        if (::read(standin::signalPipe[0], &number, 1) == 1 && front.acceptTermination(number))
            standin::dieBy(number);
    });
    QObject::connect(&front, &simidevicerestore::IdevicerestoreFront::finished, &app,
                     [](int status) { QCoreApplication::exit(status); });
    QMetaObject::invokeMethod(&front, &simidevicerestore::IdevicerestoreFront::start,
                              Qt::QueuedConnection);
    return QCoreApplication::exec();
}
