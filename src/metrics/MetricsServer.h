#pragma once

#include "metrics/MetricsRegistry.h"

#include <QHostAddress>
#include <QString>

#include <memory>
#include <optional>

class QHttpServer;

namespace metrics {

// Where to listen: "9464" (loopback), "0.0.0.0:9464", "192.168.1.5:9464", "[::1]:9464".
struct ListenAddress {
    QHostAddress address;
    quint16 port = 0;
};
// nullopt, with the reason in `error`, when the text is none of those forms.
std::optional<ListenAddress> parseListenAddress(const QString& text, QString& error);

// Serves GET /metrics from the registry in Prometheus's text format; everything else is
// answered 404 (or 405 for another method on /metrics). Main thread.
class MetricsServer {
  public:
    explicit MetricsServer(MetricsRegistry& registry);
    ~MetricsServer();

    // Answers the port bound (useful with port 0), or 0 with the reason in `error`.
    quint16 listen(const ListenAddress& where, QString& error);

  private:
    MetricsRegistry& registry_;
    std::unique_ptr<QHttpServer> server_;
};

}  // namespace metrics
