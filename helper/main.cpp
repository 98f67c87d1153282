#include "HelperInstallation.h"
#include "HelperService.h"
#include "LinuxHostLocalPort.h"
#include "PolkitAuthority.h"
#include "SimulatorLocalPort.h"

#include "localport/HelperProtocol.h"

#include "core/BundledDefaults.h"
#include "core/Settings.h"
#include "core/ZMRUnifiedLogger.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>

#include <cstdio>
#include <memory>

namespace {

constexpr int defaultIdleSeconds = 30;

int fail(const QString& message) {
    std::fprintf(stderr, "tarvel-helper: %s\n", qPrintable(message));
    return 1;
}

struct Options {
    bool session = false;
    bool replace = false;
    bool install = false;
    QString simulatorSocket;
    QString root = QStringLiteral("/");
    int idleSeconds = defaultIdleSeconds;
};

std::optional<Options> parse(const QCoreApplication& app) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Tarvel's privileged helper: puts the Mac on this computer's DFU port into "
                       "DFU mode or restarts it, for authorised callers on D-Bus."));
    parser.addHelpOption();
    const QCommandLineOption session(QStringLiteral("session"),
                                     QStringLiteral("serve on the session bus, without polkit"));
    const QCommandLineOption simulate(QStringLiteral("simulate"),
                                      QStringLiteral("drive tarvel-sim's local DFU port"),
                                      QStringLiteral("SOCKET"));
    const QCommandLineOption replace(
        QStringLiteral("replace"),
        QStringLiteral("take the bus name over from a running helper; with --install --root, "
                       "stop the running helper as an installation into / does"));
    const QCommandLineOption install(QStringLiteral("install"),
                                     QStringLiteral("copy the helper and its files into place"));
    const QCommandLineOption root(QStringLiteral("root"),
                                  QStringLiteral("install below this folder instead of /"),
                                  QStringLiteral("DIR"), QStringLiteral("/"));
    const QCommandLineOption idle(QStringLiteral("idle-seconds"),
                                  QStringLiteral("quit after this long without a call"),
                                  QStringLiteral("SECONDS"), QString::number(defaultIdleSeconds));
    parser.addOptions({session, simulate, replace, install, root, idle});
    parser.process(app);
    Options options;
    options.session = parser.isSet(session);
    options.replace = parser.isSet(replace);
    options.install = parser.isSet(install);
    options.simulatorSocket = parser.value(simulate);
    options.root = parser.value(root);
    bool ok = false;
    options.idleSeconds = parser.value(idle).toInt(&ok);
    if (!ok || options.idleSeconds <= 0) {
        fail(QStringLiteral("--idle-seconds needs a positive whole number"));
        return std::nullopt;
    }
    return options;
}

std::unique_ptr<LocalPortBackend> makeBackend(const Options& options) {
    if (!options.simulatorSocket.isEmpty())
        return std::make_unique<SimulatorLocalPort>(options.simulatorSocket);
    return std::make_unique<LinuxHostLocalPort>();
}

// On the system bus polkit decides; the session bus only ever admits the user's own processes.
HelperService::Authorize makeAuthorize(const Options& options, QDBusConnection bus,
                                       QObject* owner) {
    if (options.session)
        return [](const QString&, std::function<void(Authorization)> done) {
            done(Authorization::allowed);
        };
    auto* authority = new PolkitAuthority(bus, owner);
    return [authority](const QString& sender, std::function<void(Authorization)> done) {
        authority->check(sender, std::move(done));
    };
}

bool claimName(QDBusConnection& bus, const Options& options) {
    const auto reply = bus.interface()->registerService(
        localport::helperLabel,
        options.replace ? QDBusConnectionInterface::ReplaceExistingService
                        : QDBusConnectionInterface::DontQueueService,
        QDBusConnectionInterface::AllowReplacement);
    return reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceRegistered;
}

int serve(QCoreApplication& app, const Options& options) {
    QDBusConnection bus =
        options.session ? QDBusConnection::sessionBus() : QDBusConnection::systemBus();
    if (!bus.isConnected())
        return fail(QStringLiteral("cannot connect to the %1 bus: %2")
                        .arg(options.session ? "session" : "system", bus.lastError().message()));
    const std::unique_ptr<LocalPortBackend> backend = makeBackend(options);
    HelperService service(*backend, makeAuthorize(options, bus, &app), options.idleSeconds);
    QObject::connect(&service, &HelperService::idle, &app, &QCoreApplication::quit);
    if (!bus.registerObject(localport::helperObjectPath, &service,
                            QDBusConnection::ExportScriptableSlots))
        return fail(QStringLiteral("cannot register %1").arg(localport::helperObjectPath));
    // A newer helper taking the name over, or the bus going away, ends this one.
    QObject::connect(bus.interface(), &QDBusConnectionInterface::serviceUnregistered, &app,
                     [&app](const QString& name) {
                         if (name == localport::helperLabel)
                             app.quit();
                     });
    bus.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), &app,
                SLOT(quit()));
    if (!claimName(bus, options))
        return fail(QStringLiteral("cannot own %1 on the bus (another helper is running, or the "
                                   "bus policy does not allow it)")
                        .arg(localport::helperLabel));
    return app.exec();
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("tarvel-helper"));
    core::registerBundledDefaults(core::Settings::shared());
    // Started by a client, its standard error is that client's terminal; the log keeps the lines.
    ZMRUnifiedLogger::setProcessEcho(false);
    const std::optional<Options> options = parse(app);
    if (!options)
        return 2;
    if (options->install)
        return installHelper(options->root, options->replace);
    return serve(app, *options);
}
