#include "LocalHttpServer.h"

#include <QTcpSocket>

namespace testing_support {
namespace {

QByteArray reason(int status) {
    switch (status) {
        case 200:
            return "OK";
        case 304:
            return "Not Modified";
        case 404:
            return "Not Found";
        case 500:
            return "Internal Server Error";
        default:
            return "Status";
    }
}

}  // namespace

LocalHttpServer::LocalHttpServer() {
    server_.listen(QHostAddress::LocalHost);
    connect(&server_, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* socket = server_.nextPendingConnection()) serve(socket);
    });
}

void LocalHttpServer::respond(int status, const QByteArray& body) {
    status_ = status;
    body_ = body;
}

QString LocalHttpServer::url(const QString& path) const {
    return QStringLiteral("http://127.0.0.1:%1%2").arg(server_.serverPort()).arg(path);
}

// A GET carries no body, so the request is complete at the first empty line.
void LocalHttpServer::serve(QTcpSocket* socket) {
    connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
        received_.remove(socket);
        socket->deleteLater();
    });
    connect(socket, &QTcpSocket::readyRead, this, [this, socket] {
        QByteArray& request = received_[socket];
        request.append(socket->readAll());
        if (request.contains("\r\n\r\n"))
            answer(socket, request);
    });
}

void LocalHttpServer::answer(QTcpSocket* socket, const QByteArray& request) {
    Headers headers;
    const QList<QByteArray> lines = request.left(request.indexOf("\r\n\r\n")).split('\n');
    for (const QByteArray& line : lines.mid(1)) {
        const int colon = line.indexOf(':');
        if (colon > 0)
            headers.insert(line.left(colon).trimmed().toLower(), line.mid(colon + 1).trimmed());
    }
    requests_ << headers;
    // A 304 has no body by definition.
    const QByteArray body = status_ == 304 ? QByteArray() : body_;
    socket->write("HTTP/1.1 " + QByteArray::number(status_) + ' ' + reason(status_) + "\r\n" +
                  "Content-Type: application/json\r\nContent-Length: " +
                  QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body);
    socket->disconnectFromHost();
}

}  // namespace testing_support
