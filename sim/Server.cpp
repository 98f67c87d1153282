#include "Server.h"

#include "Protocol.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLocalServer>
#include <QLocalSocket>
#include <QThread>
#include <QTimer>

namespace sim {

namespace {

const QStringList knownTopics = {QStringLiteral("usb"), QStringLiteral("restore"),
                                 QStringLiteral("macs")};

QByteArray line(const QJsonObject& message) {
    return QJsonDocument(message).toJson(QJsonDocument::Compact) + '\n';
}

}  // namespace

Server::Server(Protocol& protocol, QObject* parent)
    : QObject(parent), protocol_(protocol), server_(new QLocalServer(this)) {
    connect(server_, &QLocalServer::newConnection, this, &Server::accept);
}

Server::~Server() {
    close();
}

bool Server::listen(const QString& path, QString* error) {
    QLocalSocket probe;
    probe.connectToServer(path);
    if (probe.waitForConnected(500)) {
        *error = QStringLiteral("another simulator is already listening on %1").arg(path);
        return false;
    }
    QLocalServer::removeServer(path);
    server_->setSocketOptions(QLocalServer::UserAccessOption);
    if (!server_->listen(path)) {
        *error = QStringLiteral("cannot listen on %1: %2").arg(path, server_->errorString());
        return false;
    }
    path_ = path;
    return true;
}

void Server::close() {
    for (QLocalSocket* socket : clients_.keys()) {
        socket->disconnect(this);
        socket->abort();
        socket->deleteLater();
    }
    clients_.clear();
    if (server_->isListening())
        server_->close();
    if (!path_.isEmpty())
        QFile::remove(path_);
    path_.clear();
}

void Server::accept() {
    while (QLocalSocket* socket = server_->nextPendingConnection()) {
        clients_.insert(socket, Client{});
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] { readFrom(socket); });
        connect(socket, &QLocalSocket::disconnected, this, [this, socket] {
            clients_.remove(socket);
            socket->deleteLater();
        });
    }
}

void Server::readFrom(QLocalSocket* socket) {
    auto found = clients_.find(socket);
    if (found == clients_.end())
        return;
    found->buffer.append(socket->readAll());
    qsizetype newline;
    while ((newline = found->buffer.indexOf('\n')) >= 0) {
        const QByteArray request = found->buffer.left(newline).trimmed();
        found->buffer.remove(0, newline + 1);
        if (request.isEmpty())
            continue;
        qint64 delay = 0;
        const QByteArray message = line(answer(socket, request, &delay));
        reply(socket, message, delay);
        found = clients_.find(socket);  // answering may have published events to this client
        if (found == clients_.end())
            return;
    }
}

// A round trip shorter than the event loop's timers can measure is waited out here; a longer one
// lets the loop serve other clients, whose hubs have links of their own, in the meantime.
void Server::reply(QLocalSocket* socket, const QByteArray& message, qint64 delayMicroseconds) {
    Client& client = clients_[socket];
    if (!client.held.isEmpty()) {
        client.held.append(message);
        return;
    }
    if (delayMicroseconds < 1000) {
        if (delayMicroseconds > 0)
            QThread::usleep(static_cast<unsigned long>(delayMicroseconds));
        socket->write(message);
        return;
    }
    client.held.append(message);
    QTimer::singleShot(std::chrono::milliseconds((delayMicroseconds + 999) / 1000), Qt::PreciseTimer,
                       socket, [this, socket] {
                           const auto found = clients_.find(socket);
                           if (found == clients_.end())
                               return;
                           for (const QByteArray& held : std::as_const(found->held)) socket->write(held);
                           found->held.clear();
                       });
}

QJsonObject Server::answer(QLocalSocket* socket, const QByteArray& text, qint64* delayMicroseconds) {
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    if (!document.isObject()) {
        QJsonObject reply =
            failure(16, QStringLiteral("a request must be one JSON object on one line"));
        reply.insert(QStringLiteral("id"), QJsonValue::Null);
        return reply;
    }
    const QJsonObject request = document.object();
    if (request.value(QLatin1String("call")).toString() != QLatin1String("subscribe")) {
        *delayMicroseconds = protocol_.roundTripMicroseconds(request);
        return protocol_.handle(request);
    }
    QJsonObject reply{{QStringLiteral("id"), request.value(QLatin1String("id"))},
                      {QStringLiteral("result"), 0}};
    const QJsonArray topics = request.value(QLatin1String("topics")).toArray();
    for (const QJsonValue& topic : topics) {
        if (!knownTopics.contains(topic.toString())) {
            reply = failure(2, QStringLiteral("unknown topic \"%1\"").arg(topic.toString()));
            reply.insert(QStringLiteral("id"), request.value(QLatin1String("id")));
            return reply;
        }
    }
    for (const QJsonValue& topic : topics) clients_[socket].topics.insert(topic.toString());
    return reply;
}

void Server::broadcast(const QString& topic, const QString& name, const QJsonObject& payload) {
    const QByteArray message =
        line({{QStringLiteral("event"), name}, {QStringLiteral("payload"), payload}});
    for (auto it = clients_.begin(); it != clients_.end(); ++it)
        if (it->topics.contains(topic))
            it.key()->write(message);
}

}  // namespace sim
