#pragma once

#include <QMap>
#include <QSet>
#include <QString>
#include <QStringList>

#include <functional>
#include <vector>

namespace metrics {

// The counters a facility scrapes, kept by the bench as things happen and rendered in
// Prometheus's text format. Label values come from small fixed sets (outcomes, port states) or
// are bounded (Mac models: a shape check and at most `maxModels` of them, the rest "other"), so
// a scrape never grows with the number of Macs. Main thread.
class MetricsRegistry {
  public:
    static constexpr int maxModels = 64;
    // Seconds; a DFU takes tens of seconds, a restore tens of minutes.
    static const std::vector<double>& dfuBuckets();
    static const std::vector<double>& restoreBuckets();

    struct Gauges {
        QMap<QString, int> portsByState;  // every state, zero or not
        int hubsConnected = 0;
        qint64 recordsWaitingToSync = 0;  // outcomes the facility database has not taken yet
    };

    MetricsRegistry();

    // "restored", "failed" or "cancelled".
    void countRestore(const QString& outcome, const QString& model, double seconds);
    void countDfuAttempt(bool reachedDfu, double seconds);
    // Read at every scrape.
    void setGauges(std::function<Gauges()> gauges) { gauges_ = std::move(gauges); }

    QString model(const QString& written);
    // The whole exposition, "# HELP"/"# TYPE" lines included.
    QString render() const;

  private:
    struct Histogram {
        std::vector<double> bounds;
        std::vector<quint64> counts;  // per bucket, not cumulative
        double sum = 0;
        quint64 count = 0;
        void observe(double value);
    };

    QMap<std::pair<QString, QString>, quint64> restores_;  // (outcome, model)
    QSet<QString> models_;
    quint64 dfuAttempts_ = 0;
    quint64 dfuFailures_ = 0;
    Histogram dfuSeconds_;
    Histogram restoreSeconds_;
    std::function<Gauges()> gauges_;
};

}  // namespace metrics
