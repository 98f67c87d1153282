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

namespace {

HelperFailure failureOf(const QDBusError& error) {
    const QString detail = QStringLiteral("%1: %2").arg(error.name(), error.message());
    if (error.name() == localport::notAuthorizedError)
        return {HelperFailure::Kind::notAuthorized, detail};
    if (error.name() == localport::dismissedError)
        return {HelperFailure::Kind::dismissed, detail};
    return {HelperFailure::Kind::unreachable, detail};
}

}  // namespace

// The watcher is nobody's child: a call outlives a connection that is dropped while an
// administrator is still typing, and its answer must still reach the caller.
void HelperConnection::call(const QString& method, LocalPortHelper::Reply reply,
                            LocalPortHelper::Failure failure) {
    const QDBusMessage message = QDBusMessage::createMethodCall(
        localport::helperLabel, localport::helperObjectPath, localport::helperInterface, method);
    auto* pending = new QDBusPendingCallWatcher(bus_.asyncCall(message, callTimeoutMilliseconds_));
    connect(pending, &QDBusPendingCallWatcher::finished, pending,
            [method, reply = std::move(reply),
             failure = std::move(failure)](QDBusPendingCallWatcher* finished) {
                finished->deleteLater();
                const QDBusPendingReply<qint64> answer = *finished;
                if (!answer.isError()) {
                    reply(answer.value());
                    return;
                }
                const HelperFailure why = failureOf(answer.error());
                ZMRLogDebug(QStringLiteral("helper call %1 failed: %2").arg(method, why.detail));
                if (failure)
                    failure(why);
            });
}
