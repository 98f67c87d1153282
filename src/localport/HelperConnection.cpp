#include "localport/HelperConnection.h"

#include "localport/HelperProtocol.h"

#include "core/Log.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

HelperConnection::HelperConnection(QDBusConnection bus, int callTimeoutMilliseconds)
    : bus_(std::move(bus)),
      callTimeoutMilliseconds_(callTimeoutMilliseconds),
      watcher_(localport::helperLabel, bus_, QDBusServiceWatcher::WatchForOwnerChange) {
    connect(&watcher_, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString&, const QString& oldOwner, const QString&) {
                // A name that gains its first owner is the helper being started for us.
                if (!oldOwner.isEmpty())
                    invalidate();
            });
}

void HelperConnection::setInvalidationHandler(std::function<void()> handler) {
    invalidationHandler_ = std::move(handler);
}

void HelperConnection::invalidate() {
    const std::function<void()> handler = std::move(invalidationHandler_);
    invalidationHandler_ = nullptr;
    if (handler)
        handler();
}

void HelperConnection::call(const QString& method, LocalPortHelper::Reply reply) {
    const QDBusMessage message = QDBusMessage::createMethodCall(
        localport::helperLabel, localport::helperObjectPath, localport::helperInterface, method);
    auto* pending =
        new QDBusPendingCallWatcher(bus_.asyncCall(message, callTimeoutMilliseconds_), this);
    connect(pending, &QDBusPendingCallWatcher::finished, this,
            [method, reply = std::move(reply)](QDBusPendingCallWatcher* finished) {
                finished->deleteLater();
                const QDBusPendingReply<qint64> answer = *finished;
                if (answer.isError()) {
                    ZMRLogDebug(QStringLiteral("helper call %1 failed: %2 %3")
                                    .arg(method, answer.error().name(), answer.error().message()));
                    return;
                }
                reply(answer.value());
            });
}
