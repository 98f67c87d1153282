// A batch of 100 simulated restores with no pause between starts, through the same restore
// session, Configurator utility and tarvel-pty a technician's run uses; the tool is a script that
// prints a restore's ten progress lines a fifth of a second apart, as cfgutil prints them one by
// one. Reports the main loop's time per progress line, the lines delivered against the lines the
// tool printed, and the peak resident memory of this process.

#include "core/AppState.h"
#include "engines/CfgutilEngine.h"
#include "configurator/ZMRConfigurator2Utility.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"
#include "restore/EventNotification.h"
#include "restore/RestoreSession.h"
#include "restore/SoundPlayer.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>

#include <sys/resource.h>

#include <ctime>

#include <cstdio>

namespace {

constexpr int stepsPerRestore = 10;

qint64 threadNanoseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return qint64(now.tv_sec) * 1000000000 + now.tv_nsec;
}

// Times the delivery of every socket-notifier event: how the main loop learns of a child's
// output, so their sum is what reading, parsing and reporting the progress lines cost it.
class TimingApplication final : public QCoreApplication {
  public:
    using QCoreApplication::QCoreApplication;
    bool notify(QObject* receiver, QEvent* event) override {
        if (event->type() != QEvent::SockAct)
            return QCoreApplication::notify(receiver, event);
        // CPU time of this thread: the children compete for both cores, and their turns are
        // not the main loop's cost.
        const qint64 before = threadNanoseconds();
        const bool handled = QCoreApplication::notify(receiver, event);
        socketNanoseconds += threadNanoseconds() - before;
        ++socketEvents;
        return handled;
    }
    qint64 socketNanoseconds = 0;
    qint64 socketEvents = 0;
};

constexpr int restores = 100;

// Like cfgutil, one process per restore that takes a moment to reach the device before the first
// line; perl, so that waiting between lines starts no process of its own.
const char* toolScript = R"(#!/usr/bin/perl
$| = 1;
select(undef, undef, undef, 1);
for my $progress (0.0, 0.05, 0.1, 0.25, 0.4, 0.55, 0.7, 0.85, 0.95, 1.0) {
  printf "{\"Step\":\"Restoring\",\"Progress\":%s}\n", $progress;
  select(undef, undef, undef, 0.2);
}
)";

restore::DeviceList devicesInDFU() {
    restore::DeviceList devices;
    for (int i = 0; i < restores; ++i) {
        auto device = std::make_shared<AC2Device>();
        device->setEcid(0xB000 + static_cast<std::uint64_t>(i));
        device->setInDFU(true);
        devices.append(device);
    }
    return devices;
}

}  // namespace

int main(int argc, char** argv) {
    TimingApplication application(argc, argv);
    const QString bin = QCoreApplication::applicationDirPath();
    QTemporaryDir folder;
    QFile tool(folder.filePath("cfgutil"));
    tool.open(QIODevice::WriteOnly);
    tool.write(toolScript);
    tool.close();
    tool.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);

    core::Settings settings(
        std::make_unique<QSettings>(folder.filePath("Tarvel.conf"), QSettings::IniFormat));
    settings.setValue(core::keys::timeBetweenProcesses, "0");
    ZMRConfigurator2Utility::Collaborators u = ZMRConfigurator2Utility::defaultCollaborators();
    u.settings = &settings;
    u.toolPath = tool.fileName();
    u.ptyPath = bin + "/tarvel-pty";
    ZMRConfigurator2Utility utility(u);
    const restore::DeviceList devices = devicesInDFU();

    core::AppState appState;
    restore::EventNotification events;
    restore::SoundPlayer sounds;
    engines::CfgutilEngine engine(utility);
    restore::RestoreSession::Collaborators c =
        restore::RestoreSession::defaultCollaborators(&appState, engine);
    c.settings = &settings;
    c.configurator = &utility;
    c.events = &events;
    c.sounds = &sounds;
    restore::RestoreSession session(c);

    qint64 lines = 0;
    QObject::connect(&session, &restore::RestoreSession::deviceProgress, [&] { ++lines; });
    bool failed = true;
    QObject::connect(&session, &restore::RestoreSession::batchFinished, [&](bool f, bool) {
        failed = f;
        QCoreApplication::exit(0);
    });
    application.socketNanoseconds = 0;
    application.socketEvents = 0;
    QElapsedTimer wall;
    wall.start();
    session.restore(devices);
    QCoreApplication::exec();

    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const qint64 expected = qint64(devices.size()) * stepsPerRestore;
    std::printf("restores: %lld (%s) in %.1f s\n", static_cast<long long>(devices.size()),
                failed ? "some failed" : "all succeeded", wall.elapsed() / 1000.0);
    std::printf("progress lines delivered: %lld of %lld sent\n", static_cast<long long>(lines),
                static_cast<long long>(expected));
    std::printf("main loop per progress line: %.1f us (%lld output events, %.1f ms in all)\n",
                application.socketNanoseconds / 1000.0 / std::max<qint64>(lines, 1),
                static_cast<long long>(application.socketEvents),
                application.socketNanoseconds / 1e6);
    std::printf("peak resident memory: %.1f MB\n", usage.ru_maxrss / 1024.0);
    return lines == expected && !failed ? 0 : 1;
}
