#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QMap>
#include <QTcpServer>

namespace testing_support {

// A real HTTP server on a free local port that answers every request with one canned response
// and keeps the requests' header fields.
class LocalHttpServer : public QObject {
    Q_OBJECT

  public:
    LocalHttpServer();

    void respond(int status, const QByteArray& body);
    QString url(const QString& path = QStringLiteral("/version.json")) const;

    // Header names in lower case, as HTTP treats them.
    using Headers = QMap<QByteArray, QByteArray>;
    const QList<Headers>& requests() const { return requests_; }

  private:
    void serve(QTcpSocket* socket);
    void answer(QTcpSocket* socket, const QByteArray& request);

    int status_ = 200;
    QByteArray body_;
    QList<Headers> requests_;
    QHash<QTcpSocket*, QByteArray> received_;
    // Last, so it and the sockets it owns go first, while what their signals touch still exists.
    QTcpServer server_;
};

}  // namespace testing_support
