#include "unattended/BenchController.h"

#include "unattended/BenchAssembly.h"

#include "core/Log.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"
#include "metrics/MetricsServer.h"

namespace unattended {

BenchController::BenchController(restore::RestoreSession& session, QObject* parent)
    : QObject(parent),
      session_(session),
      model_([this] { return assembly_ ? assembly_->now() : 0.0; }) {
    refresh_.setInterval(1000);
    connect(&refresh_, &QTimer::timeout, this, [this] {
        model_.refreshTimes();
        if (assembly_) {
            const BenchSummary summary = assembly_->bench().summary();
            emit summaryChanged(QStringLiteral("Restored %1 · failed %2 · needs attention %3 · "
                                               "under way %4")
                                    .arg(summary.restored)
                                    .arg(summary.failed)
                                    .arg(summary.needsAttention)
                                    .arg(summary.underWay));
        }
    });
}

BenchController::~BenchController() {
    teardown();
}

void BenchController::setOn(bool on, bool restore, bool recoveryAfter) {
    if (on == isOn())
        return;
    if (on) {
        start(restore, recoveryAfter);
        return;
    }
    connect(&assembly_->bench(), &UnattendedBench::stopped, this, [this] {
        // Not inside the bench's own signal.
        QMetaObject::invokeMethod(
            this,
            [this] {
                teardown();
                emit onChanged(false);
            },
            Qt::QueuedConnection);
    });
    assembly_->bench().stop();
}

void BenchController::start(bool restore, bool recoveryAfter) {
    assembly_ = std::make_unique<BenchAssembly>(BenchAssembly::Choices{restore, recoveryAfter, {}},
                                                session_);
    UnattendedBench& bench = assembly_->bench();
    connect(&bench, &UnattendedBench::started, this, [this] { model_.bind(&assembly_->bench()); });
    connect(&bench, &UnattendedBench::startFailed, this, &BenchController::problem);
    serveMetrics();
    assembly_->start();
    refresh_.start();
    emit onChanged(true);
}

void BenchController::serveMetrics() {
    const QString address = core::Settings::shared().stringForKey(core::keys::metricsListenAddress);
    if (address.trimmed().isEmpty())
        return;
    QString error;
    const auto where = metrics::parseListenAddress(address, error);
    if (!where || assembly_->serveMetrics(*where, error) == 0) {
        ZMRLogLevel0(QStringLiteral("Metrics are off: metricsListenAddress: ") + error);
        emit problem(QStringLiteral("Metrics are off: ") + error);
    }
}

void BenchController::teardown() {
    refresh_.stop();
    model_.bind(nullptr);
    assembly_.reset();
}

}  // namespace unattended
