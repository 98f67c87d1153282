#include "unattended/BenchAssembly.h"

#include "unattended/BenchMetrics.h"
#include "unattended/ManagerPortDriver.h"
#include "unattended/SessionRestorer.h"

#include "core/Clock.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"
#include "core/SimulatorAddress.h"
#include "localport/LocalPortAutoRestore.h"
#include "restore/RestoreQueue.h"
#include "restore/RestoreSession.h"
#include "usb/UsbRegistry.h"

#include <algorithm>

namespace unattended {
namespace {

UnattendedBench::Options benchOptions(const BenchAssembly::Choices& choices) {
    core::Settings& settings = core::Settings::shared();
    UnattendedBench::Options options;
    options.restore = choices.restore;
    options.recoveryAfter = choices.restore && choices.recoveryAfter;
    options.ports = choices.ports;
    options.maxRestores = int(settings.boundedNumber(core::keys::unattendedMaxRestores));
    options.secondsBetweenStarts = restore::RestoreQueue::pauseBetweenStarts(
        settings.stringForKey(core::keys::timeBetweenProcesses));
    return options;
}

}  // namespace

BenchAssembly::BenchAssembly(const Choices& choices, restore::RestoreSession& session,
                             DriverConsole console)
    : speed_(core::Clock::system().speed()) {
    clock_.start();
    auto environment =
        ZMRAcronameManagerEnvironment::processDefaults(core::simulatorSocketFromEnvironment());
    environment.console = std::move(console);
    driver_ = std::make_unique<ManagerPortDriver>(std::move(environment));
    if (choices.restore)
        restorer_ = std::make_unique<SessionRestorer>(
            session, localport::LocalPortAutoRestore::engineListing());
    bench_ = std::make_unique<UnattendedBench>(
        UnattendedBench::Collaborators{&usb::UsbRegistry::shared(), driver_.get(), restorer_.get(),
                                       [this] { return now(); }, std::max(1, int(1000 / speed_))},
        benchOptions(choices));
    countBench(registry_, *bench_);
}

BenchAssembly::~BenchAssembly() = default;

double BenchAssembly::now() const {
    return double(clock_.elapsed()) / 1000.0 * speed_;
}

quint16 BenchAssembly::serveMetrics(const metrics::ListenAddress& where, QString& error) {
    server_ = std::make_unique<metrics::MetricsServer>(registry_);
    const quint16 port = server_->listen(where, error);
    if (port == 0)
        server_.reset();
    return port;
}

void BenchAssembly::start() {
    driver_->refresh();
    bench_->start();
}

}  // namespace unattended
