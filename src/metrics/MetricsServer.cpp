#include "metrics/MetricsServer.h"

#include <QHttpServer>
#include <QHttpServerRequest>
#include <QHttpServerResponder>
#include <QHttpServerResponse>

namespace metrics {

std::optional<ListenAddress> parseListenAddress(const QString& text, QString& error) {
    const QString trimmed = text.trimmed();
    const qsizetype colon = trimmed.lastIndexOf(u':');
    QString host = colon < 0 ? QString() : trimmed.left(colon);
    const QString portText = colon < 0 ? trimmed : trimmed.mid(colon + 1);
    bool ok = false;
    const uint port = portText.toUInt(&ok);
    if (!ok || port > 65535) {
        error = QStringLiteral("\"%1\" is not [ADDRESS:]PORT (a port from 0 to 65535)").arg(text);
        return std::nullopt;
    }
    if (host.startsWith(u'[') && host.endsWith(u']'))
        host = host.mid(1, host.size() - 2);
    ListenAddress where;
    where.port = quint16(port);
    // Metrics tell how a facility works; nothing beyond this machine sees them unless asked.
    where.address = host.isEmpty() ? QHostAddress(QHostAddress::LocalHost) : QHostAddress(host);
    if (where.address.isNull()) {
        error = QStringLiteral("\"%1\" is not an IP address").arg(host);
        return std::nullopt;
    }
    return where;
}

MetricsServer::MetricsServer(MetricsRegistry& registry)
    : registry_(registry), server_(std::make_unique<QHttpServer>()) {
    server_->route(QStringLiteral("/metrics"), QHttpServerRequest::Method::Get,
                   [this](const QHttpServerRequest&) {
                       return QHttpServerResponse(QByteArrayLiteral("text/plain; version=0.0.4"),
                                                  registry_.render().toUtf8());
                   });
    server_->route(QStringLiteral("/metrics"), [](const QHttpServerRequest&) {
        return QHttpServerResponse(QHttpServerResponder::StatusCode::MethodNotAllowed);
    });
}

MetricsServer::~MetricsServer() = default;

quint16 MetricsServer::listen(const ListenAddress& where, QString& error) {
    const quint16 port = server_->listen(where.address, where.port);
    if (port == 0)
        error = QStringLiteral("cannot listen on %1:%2").arg(where.address.toString()).arg(where.port);
    return port;
}

}  // namespace metrics
