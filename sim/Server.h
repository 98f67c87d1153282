#pragma once

#include <QByteArray>
#include <QHash>
#include <QJsonObject>
#include <QObject>
#include <QSet>
#include <QString>

class QLocalServer;
class QLocalSocket;

namespace sim {

class Protocol;

// The JSON-lines socket: one reply line per request line, and pushed events for the topics a
// connection subscribed to.
class Server : public QObject {
    Q_OBJECT
  public:
    explicit Server(Protocol& protocol, QObject* parent = nullptr);
    ~Server() override;

    // Refuses a path where another simulator still answers; a stale socket file is replaced.
    bool listen(const QString& path, QString* error);
    void close();
    void broadcast(const QString& topic, const QString& name, const QJsonObject& payload);

  private:
    struct Client {
        QByteArray buffer;
        QSet<QString> topics;
        // Replies waiting for their round trip to end, in request order.
        QList<QByteArray> held;
    };
    void accept();
    void readFrom(QLocalSocket* socket);
    QJsonObject answer(QLocalSocket* socket, const QByteArray& line, qint64* delayMicroseconds);
    void reply(QLocalSocket* socket, const QByteArray& message, qint64 delayMicroseconds);

    Protocol& protocol_;
    QLocalServer* server_;
    QString path_;
    QHash<QLocalSocket*, Client> clients_;
};

}  // namespace sim
