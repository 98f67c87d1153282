#pragma once

#include <QByteArray>
#include <QHash>
#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QStringList>

#include <mutex>
#include <optional>

class QLocalSocket;

namespace core {

// The client side of tarvel-sim's JSON-lines socket. Requests are blocking and may come from any
// thread at once (hub sequences run on worker threads), so they share one plain Unix socket
// behind a mutex instead of a QLocalSocket, which belongs to one thread's event loop. Pushed
// events arrive on a second connection owned by this object's thread.
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
    bool ensureRequestSocket();
    void closeRequestSocket();
    bool sendLine(const QByteArray& line);
    std::optional<QJsonObject> awaitReply(qint64 id);
    std::optional<QJsonObject> attempt(const QJsonObject& message, qint64 id);
    void setError(const QString& error);

    void drainEvents();
    void handleEventLine(const QByteArray& line);

    const QString socketPath_;

    mutable std::mutex requestMutex_;
    int requestSocket_ = -1;
    QByteArray requestBuffer_;
    qint64 nextId_ = 1;
    int replyTimeoutMilliseconds_ = 15000;

    mutable std::mutex errorMutex_;
    QString lastError_;

    QLocalSocket* eventSocket_ = nullptr;
    QByteArray eventBuffer_;
    qint64 nextSubscriptionId_ = 1;
    QHash<qint64, QJsonObject> subscriptionReplies_;
};

}  // namespace core
