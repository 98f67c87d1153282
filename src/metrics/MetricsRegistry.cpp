#include "metrics/MetricsRegistry.h"

#include "core/BundleInfo.h"

#include <QRegularExpression>

#include <algorithm>
#include <cstddef>

namespace metrics {
namespace {

QString number(double value) { return QString::number(value, 'g', 15); }

void header(QStringList& lines, const char* name, const char* type, const char* help) {
    lines << QStringLiteral("# HELP %1 %2").arg(QLatin1String(name), QLatin1String(help))
          << QStringLiteral("# TYPE %1 %2").arg(QLatin1String(name), QLatin1String(type));
}

}  // namespace

const std::vector<double>& MetricsRegistry::dfuBuckets() {
    static const std::vector<double> bounds{5, 10, 15, 20, 30, 45, 60, 90, 120, 300};
    return bounds;
}

const std::vector<double>& MetricsRegistry::restoreBuckets() {
    static const std::vector<double> bounds{60, 300, 600, 900, 1200, 1800, 2700, 3600, 7200};
    return bounds;
}

void MetricsRegistry::Histogram::observe(double value) {
    const auto bucket = std::lower_bound(bounds.begin(), bounds.end(), value) - bounds.begin();
    if (bucket < std::ptrdiff_t(bounds.size()))
        ++counts[std::size_t(bucket)];
    sum += value;
    ++count;
}

MetricsRegistry::MetricsRegistry() {
    dfuSeconds_.bounds = dfuBuckets();
    dfuSeconds_.counts.assign(dfuSeconds_.bounds.size(), 0);
    restoreSeconds_.bounds = restoreBuckets();
    restoreSeconds_.counts.assign(restoreSeconds_.bounds.size(), 0);
}

QString MetricsRegistry::model(const QString& written) {
    static const QRegularExpression shape(QStringLiteral("^[A-Za-z]{1,20}[0-9]{1,3},[0-9]{1,3}$"));
    if (!shape.match(written).hasMatch())
        return QStringLiteral("other");
    if (!models_.contains(written) && models_.size() >= maxModels)
        return QStringLiteral("other");
    models_.insert(written);
    return written;
}

void MetricsRegistry::countRestore(const QString& outcome, const QString& model,
                                   double seconds) {
    ++restores_[{outcome, this->model(model)}];
    restoreSeconds_.observe(seconds);
}

void MetricsRegistry::countDfuAttempt(bool reachedDfu, double seconds) {
    ++dfuAttempts_;
    if (reachedDfu)
        dfuSeconds_.observe(seconds);
    else
        ++dfuFailures_;
}

QString MetricsRegistry::render() const {
    QStringList lines;
    header(lines, "tarvel_restores_total", "counter", "Restores by outcome and Mac model.");
    for (auto it = restores_.cbegin(); it != restores_.cend(); ++it)
        lines << QStringLiteral("tarvel_restores_total{outcome=\"%1\",model=\"%2\"} %3")
                     .arg(it.key().first, it.key().second)
                     .arg(it.value());
    header(lines, "tarvel_dfu_attempts_total", "counter", "DFU sequences run on hub ports.");
    lines << QStringLiteral("tarvel_dfu_attempts_total %1").arg(dfuAttempts_);
    header(lines, "tarvel_dfu_failures_total", "counter",
           "DFU sequences after which the Mac did not reach DFU mode.");
    lines << QStringLiteral("tarvel_dfu_failures_total %1").arg(dfuFailures_);
    const auto histogram = [&lines](const char* name, const char* help, const Histogram& h) {
        header(lines, name, "histogram", help);
        quint64 cumulative = 0;
        for (std::size_t i = 0; i < h.bounds.size(); ++i) {
            cumulative += h.counts[i];
            lines << QStringLiteral("%1_bucket{le=\"%2\"} %3")
                         .arg(QLatin1String(name), number(h.bounds[i]))
                         .arg(cumulative);
        }
        lines << QStringLiteral("%1_bucket{le=\"+Inf\"} %2").arg(QLatin1String(name)).arg(h.count)
              << QStringLiteral("%1_sum %2").arg(QLatin1String(name), number(h.sum))
              << QStringLiteral("%1_count %2").arg(QLatin1String(name)).arg(h.count);
    };
    histogram("tarvel_dfu_duration_seconds", "From a Mac's arrival to DFU mode.", dfuSeconds_);
    histogram("tarvel_restore_duration_seconds", "From a restore's start to its end.",
              restoreSeconds_);
    const Gauges gauges = gauges_ ? gauges_() : Gauges{};
    header(lines, "tarvel_ports", "gauge", "Hub ports of the bench by state.");
    for (auto it = gauges.portsByState.cbegin(); it != gauges.portsByState.cend(); ++it)
        lines << QStringLiteral("tarvel_ports{state=\"%1\"} %2").arg(it.key()).arg(it.value());
    header(lines, "tarvel_hubs_connected", "gauge", "Hubs of the bench on the bus.");
    lines << QStringLiteral("tarvel_hubs_connected %1").arg(gauges.hubsConnected);
    header(lines, "tarvel_records_waiting_to_sync", "gauge",
           "Restore records not yet in the facility database.");
    lines << QStringLiteral("tarvel_records_waiting_to_sync %1").arg(gauges.recordsWaitingToSync);
    header(lines, "tarvel_build_info", "gauge", "The running build; always 1.");
    const core::BundleInfo& bundle = core::BundleInfo::shared();
    lines << QStringLiteral("tarvel_build_info{version=\"%1\",build=\"%2\"} 1")
                 .arg(bundle.shortVersion(), bundle.bundleVersion());
    return lines.join(u'\n') + u'\n';
}

}  // namespace metrics
