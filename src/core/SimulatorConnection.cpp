#include "core/SimulatorConnection.h"

#include <QDeadlineTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLocalSocket>
#include <QThread>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>

namespace core {

namespace {

QString systemError(const char* what) {
    return QStringLiteral("%1: %2").arg(QString::fromUtf8(what),
                                        QString::fromUtf8(std::strerror(errno)));
}

std::optional<QJsonObject> parseObject(const QByteArray& line) {
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(line, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    return document.object();
}

QByteArray encodeLine(const QJsonObject& message) {
    return QJsonDocument(message).toJson(QJsonDocument::Compact) + '\n';
}

}  // namespace

SimulatorConnection::SimulatorConnection(QString socketPath, QObject* parent)
    : QObject(parent), socketPath_(std::move(socketPath)) {}

SimulatorConnection::~SimulatorConnection() {
    std::lock_guard lock(linksMutex_);
    for (RequestLink& link : idleLinks_) close(link);
}

void SimulatorConnection::setReplyTimeoutMilliseconds(int milliseconds) {
    replyTimeoutMilliseconds_ = milliseconds;
}

QString SimulatorConnection::lastError() const {
    std::lock_guard lock(errorMutex_);
    return lastError_;
}

void SimulatorConnection::setError(const QString& error) {
    std::lock_guard lock(errorMutex_);
    lastError_ = error;
}

std::optional<QJsonObject> SimulatorConnection::request(const QString& call,
                                                        const QJsonObject& arguments) {
    const qint64 id = nextId_++;
    QJsonObject message = arguments;
    message.insert(QStringLiteral("id"), id);
    message.insert(QStringLiteral("call"), call);

    RequestLink link = borrowLink();
    // A socket kept from an earlier request may belong to a simulator that has since been
    // restarted; such a stale link gets one fresh try.
    const bool reused = link.socket >= 0;
    std::optional<QJsonObject> reply = attempt(link, message, id);
    if (!reply && reused)
        reply = attempt(link, message, id);
    returnLink(std::move(link));
    return reply;
}

SimulatorConnection::RequestLink SimulatorConnection::borrowLink() {
    std::lock_guard lock(linksMutex_);
    if (idleLinks_.empty())
        return {};
    RequestLink link = std::move(idleLinks_.back());
    idleLinks_.pop_back();
    return link;
}

void SimulatorConnection::returnLink(RequestLink link) {
    if (link.socket < 0)
        return;
    std::lock_guard lock(linksMutex_);
    idleLinks_.push_back(std::move(link));
}

std::optional<QJsonObject> SimulatorConnection::attempt(RequestLink& link, const QJsonObject& message,
                                                        qint64 id) {
    if (!open(link))
        return std::nullopt;
    if (!sendLine(link, encodeLine(message))) {
        close(link);
        return std::nullopt;
    }
    auto reply = awaitReply(link, id);
    if (!reply)
        close(link);
    return reply;
}

bool SimulatorConnection::open(RequestLink& link) {
    if (link.socket >= 0)
        return true;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const QByteArray path = socketPath_.toLocal8Bit();
    if (path.isEmpty() || static_cast<size_t>(path.size()) >= sizeof(address.sun_path)) {
        setError(QStringLiteral("simulator socket path is empty or too long: %1").arg(socketPath_));
        return false;
    }
    std::memcpy(address.sun_path, path.constData(), static_cast<size_t>(path.size()));
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        setError(systemError("socket"));
        return false;
    }
    if (::connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        setError(QStringLiteral("cannot reach the simulator at %1: %2")
                     .arg(socketPath_, QString::fromUtf8(std::strerror(errno))));
        ::close(descriptor);
        return false;
    }
    link.socket = descriptor;
    link.buffer.clear();
    return true;
}

void SimulatorConnection::close(RequestLink& link) {
    if (link.socket >= 0)
        ::close(link.socket);
    link.socket = -1;
    link.buffer.clear();
}

bool SimulatorConnection::sendLine(RequestLink& link, const QByteArray& line) {
    qsizetype sent = 0;
    while (sent < line.size()) {
        const ssize_t n = ::send(link.socket, line.constData() + sent,
                                 static_cast<size_t>(line.size() - sent), MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            setError(systemError("sending to the simulator"));
            return false;
        }
        sent += n;
    }
    return true;
}

std::optional<QJsonObject> SimulatorConnection::awaitReply(RequestLink& link, qint64 id) {
    const QDeadlineTimer deadline(replyTimeoutMilliseconds_.load());
    for (;;) {
        qsizetype newline;
        while ((newline = link.buffer.indexOf('\n')) >= 0) {
            const QByteArray line = link.buffer.left(newline);
            link.buffer.remove(0, newline + 1);
            const auto reply = parseObject(line);
            if (reply && reply->value(QStringLiteral("id")).toInteger(-1) == id)
                return reply;
        }
        pollfd waiting{link.socket, POLLIN, 0};
        const int ready = ::poll(&waiting, 1, static_cast<int>(deadline.remainingTime()));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready == 0) {
            setError(QStringLiteral("the simulator did not answer in time"));
            return std::nullopt;
        }
        char chunk[4096];
        const ssize_t n = ready < 0 ? -1 : ::recv(link.socket, chunk, sizeof(chunk), 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            setError(n == 0 ? QStringLiteral("the simulator closed the connection")
                            : systemError("reading from the simulator"));
            return std::nullopt;
        }
        link.buffer.append(chunk, n);
    }
}

bool SimulatorConnection::subscribe(const QStringList& topics) {
    if (QThread::currentThread() != thread()) {
        setError(QStringLiteral("subscribe must be called on the connection's own thread"));
        return false;
    }
    if (eventSocket_ == nullptr || eventSocket_->state() != QLocalSocket::ConnectedState) {
        delete eventSocket_;
        eventBuffer_.clear();
        eventSocket_ = new QLocalSocket(this);
        eventSocket_->connectToServer(socketPath_);
        if (!eventSocket_->waitForConnected(5000)) {
            setError(QStringLiteral("cannot reach the simulator at %1: %2")
                         .arg(socketPath_, eventSocket_->errorString()));
            eventSocket_->deleteLater();
            eventSocket_ = nullptr;
            return false;
        }
        connect(eventSocket_, &QLocalSocket::readyRead, this, &SimulatorConnection::drainEvents);
        connect(eventSocket_, &QLocalSocket::disconnected, this,
                &SimulatorConnection::disconnected);
    }
    const qint64 id = nextSubscriptionId_++;
    eventSocket_->write(
        encodeLine({{QStringLiteral("id"), id},
                    {QStringLiteral("call"), QStringLiteral("subscribe")},
                    {QStringLiteral("topics"), QJsonArray::fromStringList(topics)}}));
    eventSocket_->flush();
    const QDeadlineTimer deadline(5000);
    while (!subscriptionReplies_.contains(id)) {
        drainEvents();
        if (subscriptionReplies_.contains(id))
            break;
        if (deadline.hasExpired() ||
            !eventSocket_->waitForReadyRead(static_cast<int>(deadline.remainingTime()))) {
            setError(QStringLiteral("the simulator did not confirm the subscription"));
            return false;
        }
    }
    const QJsonObject reply = subscriptionReplies_.take(id);
    if (reply.value(QStringLiteral("result")).toInt(-1) != 0) {
        setError(reply.value(QStringLiteral("message")).toString());
        return false;
    }
    return true;
}

void SimulatorConnection::drainEvents() {
    if (eventSocket_ == nullptr)
        return;
    eventBuffer_.append(eventSocket_->readAll());
    qsizetype newline;
    while ((newline = eventBuffer_.indexOf('\n')) >= 0) {
        const QByteArray line = eventBuffer_.left(newline);
        eventBuffer_.remove(0, newline + 1);
        handleEventLine(line);
    }
}

void SimulatorConnection::handleEventLine(const QByteArray& line) {
    const auto message = parseObject(line);
    if (!message)
        return;
    if (message->contains(QStringLiteral("event"))) {
        emit eventReceived(message->value(QStringLiteral("event")).toString(),
                           message->value(QStringLiteral("payload")).toObject());
    } else if (message->contains(QStringLiteral("id"))) {
        subscriptionReplies_.insert(message->value(QStringLiteral("id")).toInteger(), *message);
    }
}

}  // namespace core
