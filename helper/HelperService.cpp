#include "HelperService.h"

#include "localport/HelperProtocol.h"

#include "core/Log.h"

#include <QDBusConnection>
#include <QDBusMessage>

HelperService::HelperService(LocalPortBackend& backend, Authorize authorize, int idleSeconds,
                             QObject* parent)
    : QObject(parent), backend_(backend), authorize_(std::move(authorize)) {
    idleTimer_.setSingleShot(true);
    idleTimer_.setInterval(idleSeconds * 1000);
    connect(&idleTimer_, &QTimer::timeout, this, &HelperService::idle);
    idleTimer_.start();
}

qint64 HelperService::GetVersion() {
    return answerWhenAuthorised([] { return localport::helperVersion; });
}

qint64 HelperService::EnterDFUMode() {
    return answerWhenAuthorised([this] { return backend_.enterDFUMode(); });
}

qint64 HelperService::Reboot() {
    return answerWhenAuthorised([this] { return backend_.reboot(); });
}

// The reply waits for the authority's answer; the value returned here is never sent.
qint64 HelperService::answerWhenAuthorised(std::function<qint64()> work) {
    setDelayedReply(true);
    const QDBusMessage call = message();
    QDBusConnection bus = connection();
    ++callsInProgress_;
    idleTimer_.stop();
    authorize_(call.service(), [this, call, bus, work = std::move(work)](bool allowed) mutable {
        if (allowed) {
            bus.send(call.createReply(QVariant::fromValue<qint64>(work())));
        } else {
            ZMRLogLevel1(QStringLiteral("%1 refused: %2 is not authorised for %3")
                             .arg(call.member(), call.service(), localport::polkitAction));
            bus.send(call.createErrorReply(
                localport::notAuthorizedError,
                QStringLiteral("Not authorised to control the host's DFU port.")));
        }
        if (--callsInProgress_ == 0)
            idleTimer_.start();
    });
    return 0;
}
