#include "metrics/MetricsRegistry.h"
#include "metrics/MetricsServer.h"
#include "support/Scripts.h"

#include <QDeadlineTimer>
#include <QEventLoop>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTimer>

#include <gtest/gtest.h>

#include <optional>

namespace {

quint16 freePort() {
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

// Runs the event loop (where the endpoint answers) for a while.
void turnLoop(int milliseconds) {
    QEventLoop loop;
    QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
    loop.exec();
}

// The value Prometheus's query API gives for an expression, if it has one.
std::optional<double> query(QNetworkAccessManager& network, quint16 port,
                            const QString& expression) {
    QUrl url(QString("http://127.0.0.1:%1/api/v1/query").arg(port));
    url.setQuery("query=" + QUrl::toPercentEncoding(expression));
    QNetworkReply* reply = network.get(QNetworkRequest(url));
    testing_support::runLoopUntil([&] { return reply->isFinished(); }, 5000);
    const QJsonArray result = QJsonDocument::fromJson(reply->readAll())
                                  .object()
                                  .value("data")
                                  .toObject()
                                  .value("result")
                                  .toArray();
    reply->deleteLater();
    if (result.isEmpty())
        return std::nullopt;
    return result.first().toObject().value("value").toArray().at(1).toString().toDouble();
}

// Debian's own Prometheus scrapes the endpoint every second; what it stores follows the counter.
TEST(PrometheusScrape, ARealPrometheusSeesRestoresMove) {
    if (QString(TARVEL_PROMETHEUS).isEmpty())
        GTEST_SKIP() << "prometheus is not installed (scripts/setup installs it)";
    metrics::MetricsRegistry registry;
    metrics::MetricsServer server(registry);
    QString error;
    const quint16 endpoint = server.listen({QHostAddress(QHostAddress::LocalHost), 0}, error);
    ASSERT_NE(endpoint, 0) << error.toStdString();

    QTemporaryDir folder;
    QFile config(folder.filePath("prometheus.yml"));
    ASSERT_TRUE(config.open(QIODevice::WriteOnly));
    config.write(QString("global:\n  scrape_interval: 1s\nscrape_configs:\n  - job_name: tarvel\n"
                         "    static_configs:\n      - targets: ['127.0.0.1:%1']\n")
                     .arg(endpoint)
                     .toUtf8());
    config.close();
    const quint16 web = freePort();
    QProcess prometheus;
    prometheus.setProcessChannelMode(QProcess::MergedChannels);
    prometheus.start(TARVEL_PROMETHEUS, {"--config.file=" + config.fileName(),
                                         "--storage.tsdb.path=" + folder.filePath("data"),
                                         QString("--web.listen-address=127.0.0.1:%1").arg(web)});
    ASSERT_TRUE(prometheus.waitForStarted(10000));

    QNetworkAccessManager network;
    const QString expression = "sum(tarvel_restores_total{outcome=\"restored\"})";
    auto waitFor = [&](double wanted) {
        const QDeadlineTimer deadline(30000);
        std::optional<double> seen;
        while (!deadline.hasExpired()) {
            turnLoop(250);
            seen = query(network, web, expression);
            if (seen == wanted)
                break;
        }
        return seen;
    };
    registry.countRestore("restored", "Mac14,2", 600);
    EXPECT_EQ(waitFor(1), 1.0) << prometheus.readAll().toStdString();
    registry.countRestore("restored", "Mac14,2", 650);
    registry.countRestore("restored", "Macmini9,1", 700);
    EXPECT_EQ(waitFor(3), 3.0);
    EXPECT_EQ(query(network, web, "up{job=\"tarvel\"}"), 1.0);

    prometheus.terminate();
    prometheus.waitForFinished(10000);
}

}  // namespace
