#include "unattended/BenchController.h"

#include "unattended/ManagerPortDriver.h"
#include "unattended/SessionRestorer.h"
#include "unattended/UnattendedBench.h"

#include "core/Clock.h"
#include "core/Log.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"
#include "core/SimulatorAddress.h"
#include "metrics/BenchMetrics.h"
#include "metrics/MetricsServer.h"
#include "restore/RestoreQueue.h"
#include "restore/RestoreSession.h"
#include "usb/UsbRegistry.h"

namespace unattended {

BenchController::BenchController(restore::RestoreSession& session, QObject* parent)
    : QObject(parent), session_(session), model_([this] { return now(); }) {
    clock_.start();
    refresh_.setInterval(1000);
    connect(&refresh_, &QTimer::timeout, this, [this] {
        model_.refreshTimes();
        if (bench_) {
            const BenchSummary summary = bench_->summary();
            emit summaryChanged(QStringLiteral("Restored %1 · failed %2 · needs attention %3 · "
                                               "under way %4")
                                    .arg(summary.restored)
                                    .arg(summary.failed)
                                    .arg(summary.needsAttention)
                                    .arg(summary.underWay));
        }
    });
}

BenchController::~BenchController() { teardown(); }

double BenchController::now() const {
    return double(clock_.elapsed()) / 1000.0 * core::Clock::system().speed();
}

void BenchController::setOn(bool on, bool restore, bool recoveryAfter) {
    if (on == isOn())
        return;
    if (on) {
        start(restore, recoveryAfter);
        return;
    }
    connect(bench_.get(), &UnattendedBench::stopped, this, [this] {
        // Not inside the bench's own signal.
        QMetaObject::invokeMethod(this, [this] { teardown(); emit onChanged(false); },
                                  Qt::QueuedConnection);
    });
    bench_->stop();
}

void BenchController::start(bool restore, bool recoveryAfter) {
    core::Settings& settings = core::Settings::shared();
    UnattendedBench::Options options;
    options.restore = restore;
    options.recoveryAfter = restore && recoveryAfter;
    options.maxRestores = int(settings.boundedNumber(core::keys::unattendedMaxRestores));
    options.secondsBetweenStarts = restore::RestoreQueue::pauseBetweenStarts(
        settings.stringForKey(core::keys::timeBetweenProcesses));
    driver_ = std::make_unique<ManagerPortDriver>(
        ZMRAcronameManagerEnvironment::processDefaults(core::simulatorSocketFromEnvironment()));
    restorer_ = std::make_unique<SessionRestorer>(
        session_, restore::LocalPortAutoRestore::configuratorListing());
    const double speed = core::Clock::system().speed();
    bench_ = std::make_unique<UnattendedBench>(
        UnattendedBench::Collaborators{&usb::UsbRegistry::shared(), driver_.get(), restorer_.get(),
                                       [this] { return now(); }, std::max(1, int(1000 / speed))},
        options);
    connect(bench_.get(), &UnattendedBench::started, this, [this] { model_.bind(bench_.get()); });
    connect(bench_.get(), &UnattendedBench::startFailed, this, &BenchController::problem);
    serveMetrics();
    driver_->refresh();
    bench_->start();
    refresh_.start();
    emit onChanged(true);
}

void BenchController::serveMetrics() {
    const QString address = core::Settings::shared().stringForKey(core::keys::metricsListenAddress);
    if (address.trimmed().isEmpty())
        return;
    QString error;
    const auto where = metrics::parseListenAddress(address, error);
    registry_ = std::make_unique<metrics::MetricsRegistry>();
    server_ = std::make_unique<metrics::MetricsServer>(*registry_);
    metrics::countBench(*registry_, *bench_);
    if (!where || server_->listen(*where, error) == 0) {
        ZMRLogLevel0(QStringLiteral("Metrics are off: metricsListenAddress: ") + error);
        emit problem(QStringLiteral("Metrics are off: ") + error);
        server_.reset();
    }
}

void BenchController::teardown() {
    refresh_.stop();
    model_.bind(nullptr);
    server_.reset();
    registry_.reset();
    bench_.reset();
    restorer_.reset();
    driver_.reset();
}

}  // namespace unattended
