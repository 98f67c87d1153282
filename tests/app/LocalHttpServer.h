#pragma once

#include <QHttpServer>
#include <QHttpServerRequest>
#include <QHttpServerResponse>
#include <QList>
#include <QMap>

namespace testing_support {

// A real HTTP server on a free local port that answers the version document's address with one
// canned response and keeps the requests' header fields.
class LocalHttpServer {
  public:
    LocalHttpServer() {
        server_.route(QStringLiteral("/version.json"), [this](const QHttpServerRequest& request) {
            Headers headers;
            for (const auto& [name, value] : request.headers()) headers.insert(name.toLower(), value);
            requests_ << headers;
            // A 304 has no body by definition.
            return QHttpServerResponse(QByteArrayLiteral("application/json"),
                                       status_ == 304 ? QByteArray() : body_,
                                       QHttpServerResponse::StatusCode(status_));
        });
        port_ = server_.listen(QHostAddress::LocalHost);
    }

    void respond(int status, const QByteArray& body) {
        status_ = status;
        body_ = body;
    }
    QString url() const { return QStringLiteral("http://127.0.0.1:%1/version.json").arg(port_); }

    // Header names in lower case, as HTTP treats them.
    using Headers = QMap<QByteArray, QByteArray>;
    const QList<Headers>& requests() const { return requests_; }

  private:
    int status_ = 200;
    QByteArray body_;
    QList<Headers> requests_;
    QHttpServer server_;
    quint16 port_ = 0;
};

}  // namespace testing_support
