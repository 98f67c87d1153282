#pragma once

#include <QByteArray>
#include <QHash>
#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QStringList>

#include <atomic>
#include <mutex>
#include <optional>
#include <vector>

class QLocalSocket;

namespace core {

// The client side of tarvel-sim's JSON-lines socket. Requests are blocking and may come from any
// thread at once (hub sequences and their per-hub lanes run on worker threads), so they go over
// plain Unix sockets rather than a QLocalSocket, which belongs to one thread's event loop: each
// request borrows an idle socket or opens one, so requests from several threads travel side by
// side as calls to several hubs do. Pushed events arrive on a connection owned by this object's
// thread.
class SimulatorConnection : public QObject {
    Q_OBJECT
  public:
    explicit SimulatorConnection(QString socketPath, QObject* parent = nullptr);
    ~SimulatorConnection() override;

    // Sends {"id", "call", ...arguments} and waits for the reply with the same id. nullopt when
    // the simulator cannot be reached or does not answer in time; lastError() says why.
    std::optional<QJsonObject> request(const QString& call, const QJsonObject& arguments = {});
    QString lastError() const;

    // Opens the event connection (once) and asks for the topics. Call on this object's thread.
    bool subscribe(const QStringList& topics);

    QString socketPath() const { return socketPath_; }

    // How long a request waits for its reply; the simulator answers at once, so a long silence
    // means it hangs.
    void setReplyTimeoutMilliseconds(int milliseconds);

  signals:
    void eventReceived(const QString& name, const QJsonObject& payload);
    void disconnected();

  private:
    struct RequestLink {
        int socket = -1;
        QByteArray buffer;
    };
    RequestLink borrowLink();
    void returnLink(RequestLink link);
    bool open(RequestLink& link);
    static void close(RequestLink& link);
    bool sendLine(RequestLink& link, const QByteArray& line);
    std::optional<QJsonObject> awaitReply(RequestLink& link, qint64 id);
    std::optional<QJsonObject> attempt(RequestLink& link, const QJsonObject& message, qint64 id);
    void setError(const QString& error);

    void drainEvents();
    void handleEventLine(const QByteArray& line);

    const QString socketPath_;

    std::mutex linksMutex_;
    std::vector<RequestLink> idleLinks_;
    std::atomic<qint64> nextId_ = 1;
    std::atomic<int> replyTimeoutMilliseconds_ = 15000;

    mutable std::mutex errorMutex_;
    QString lastError_;

    QLocalSocket* eventSocket_ = nullptr;
    QByteArray eventBuffer_;
    qint64 nextSubscriptionId_ = 1;
    QHash<qint64, QJsonObject> subscriptionReplies_;
};

}  // namespace core
