#include "metrics/MetricsRegistry.h"
#include "metrics/MetricsServer.h"
#include "support/Scripts.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTcpSocket>

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace {

using metrics::MetricsRegistry;

TEST(MetricsRegistry, RendersCountersHistogramsAndGaugesInTheTextFormat) {
    MetricsRegistry registry;
    registry.countRestore("restored", "Mac14,2", 700);
    registry.countRestore("restored", "Mac14,2", 1300);
    registry.countRestore("failed", "Macmini9,1", 100);
    registry.countDfuAttempt(true, 17);
    registry.countDfuAttempt(false, 40);
    registry.setGauges([] {
        MetricsRegistry::Gauges gauges;
        gauges.portsByState = {{"done", 2}, {"empty", 8}};
        gauges.hubsConnected = 2;
        gauges.recordsWaitingToSync = 7;
        return gauges;
    });
    const QString text = registry.render();
    for (const char* line :
         {"# TYPE tarvel_restores_total counter",
          "tarvel_restores_total{outcome=\"restored\",model=\"Mac14,2\"} 2",
          "tarvel_restores_total{outcome=\"failed\",model=\"Macmini9,1\"} 1",
          "tarvel_dfu_attempts_total 2", "tarvel_dfu_failures_total 1",
          "# TYPE tarvel_dfu_duration_seconds histogram",
          "tarvel_dfu_duration_seconds_bucket{le=\"15\"} 0",
          "tarvel_dfu_duration_seconds_bucket{le=\"20\"} 1",
          "tarvel_dfu_duration_seconds_bucket{le=\"+Inf\"} 1",
          "tarvel_dfu_duration_seconds_count 1", "tarvel_dfu_duration_seconds_sum 17",
          // Cumulative: 100 and 700 are under 900; 1300 only from 1800 on.
          "tarvel_restore_duration_seconds_bucket{le=\"900\"} 2",
          "tarvel_restore_duration_seconds_bucket{le=\"1800\"} 3", "tarvel_ports{state=\"done\"} 2",
          "tarvel_hubs_connected 2", "tarvel_records_waiting_to_sync 7", "tarvel_build_info{"})
        EXPECT_TRUE(text.contains(QLatin1String(line))) << line << "\n" << text.toStdString();
    EXPECT_TRUE(text.endsWith(u'\n'));
}

// A model that is not shaped like one, or one past the limit, never becomes a label of its own:
// a scrape must not grow with whatever a listing says.
TEST(MetricsRegistry, ModelLabelsAreBounded) {
    MetricsRegistry registry;
    EXPECT_EQ(registry.model("Mac14,2"), "Mac14,2");
    EXPECT_EQ(registry.model("C02XYZ123ABC"), "other") << "a serial number";
    EXPECT_EQ(registry.model("Mac14,2\"} 1\nevil"), "other");
    for (int i = 0; i < MetricsRegistry::maxModels; ++i) registry.model(QString("Mac%1,1").arg(i));
    EXPECT_EQ(registry.model("Mac99,9"), "other");
    EXPECT_EQ(registry.model("Mac3,1"), "Mac3,1") << "a model already seen keeps its label";
}

TEST(MetricsServer, ListenAddressesDefaultToLoopback) {
    const struct {
        const char* text;
        std::optional<QHostAddress> address;  // none: refused
    } cases[] = {{"9464", QHostAddress(QHostAddress::LocalHost)},
                 {"0.0.0.0:9100", QHostAddress(QHostAddress::AnyIPv4)},
                 {"[::1]:9100", QHostAddress(QHostAddress::LocalHostIPv6)},
                 {"70000", std::nullopt},
                 {"bench:9100", std::nullopt},
                 {"", std::nullopt}};
    QString error;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const auto parsed = metrics::parseListenAddress(c.text, error);
        EXPECT_EQ(parsed ? std::optional(parsed->address) : std::nullopt, c.address);
    }
    EXPECT_EQ(metrics::parseListenAddress("9464", error).value().port, 9464);
}

// Many scrapes at once each get the whole exposition; requests that are not a GET of /metrics,
// and bytes that are no HTTP at all, are turned away without disturbing the others.
TEST(MetricsServer, AnswersConcurrentScrapesAndTurnsAwayBadRequests) {
    MetricsRegistry registry;
    registry.countRestore("restored", "Mac14,2", 600);
    metrics::MetricsServer server(registry);
    QString error;
    const quint16 port = server.listen({QHostAddress(QHostAddress::LocalHost), 0}, error);
    ASSERT_NE(port, 0) << error.toStdString();
    const QString base = QString("http://127.0.0.1:%1").arg(port);

    QTcpSocket garbage;
    garbage.connectToHost(QHostAddress::LocalHost, port);
    ASSERT_TRUE(garbage.waitForConnected(5000));
    garbage.write(QByteArray(4096, '\x01') + "\r\n\r\n");

    QNetworkAccessManager network;
    QList<QNetworkReply*> scrapes;
    for (int i = 0; i < 32; ++i)
        scrapes.append(network.get(QNetworkRequest(QUrl(base + "/metrics"))));
    QNetworkReply* missing = network.get(QNetworkRequest(QUrl(base + "/nothing")));
    QNetworkReply* posted = network.post(QNetworkRequest(QUrl(base + "/metrics")), "x");
    const QList<QNetworkReply*> replies = scrapes + QList<QNetworkReply*>{missing, posted};
    ASSERT_TRUE(testing_support::runLoopUntil(
        [&] { return std::ranges::all_of(replies, &QNetworkReply::isFinished); }, 20000))
        << "every request answered";
    const auto status = [](QNetworkReply* reply) {
        return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    };
    for (QNetworkReply* reply : scrapes) {
        EXPECT_EQ(status(reply), 200);
        EXPECT_TRUE(
            reply->header(QNetworkRequest::ContentTypeHeader).toString().startsWith("text/plain"));
        EXPECT_TRUE(reply->readAll().contains(
            "tarvel_restores_total{outcome=\"restored\",model=\"Mac14,2\"} 1"));
        reply->deleteLater();
    }
    EXPECT_EQ(std::pair(status(missing), status(posted)), std::pair(404, 405));
}

}  // namespace
