#include "HelperService.h"

#include "localport/HelperProtocol.h"

#include "core/Log.h"

#include <QDBusConnection>
#include <QDBusMessage>

namespace {

QDBusMessage refusal(const QDBusMessage& call, Authorization answer) {
    const bool dismissed = answer == Authorization::dismissed;
    ZMRLogLevel1(QStringLiteral("%1 refused: %2 %3 for %4")
                     .arg(call.member(), call.service(),
                          dismissed ? QStringLiteral("dismissed the administrator prompt")
                                    : QStringLiteral("is not authorised"),
                          localport::polkitAction));
    if (dismissed)
        return call.createErrorReply(
            localport::dismissedError,
            QStringLiteral("The administrator password prompt was dismissed."));
    return call.createErrorReply(localport::notAuthorizedError,
                                 QStringLiteral("Not authorised to control the host's DFU port."));
}

}  // namespace

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
    authorize_(call.service(),
               [this, call, bus, work = std::move(work)](Authorization answer) mutable {
                   bus.send(answer == Authorization::allowed
                                ? call.createReply(QVariant::fromValue<qint64>(work()))
                                : refusal(call, answer));
                   if (--callsInProgress_ == 0)
                       idleTimer_.start();
               });
    return 0;
}
