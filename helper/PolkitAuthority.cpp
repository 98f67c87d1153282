#include "PolkitAuthority.h"

#include "localport/HelperProtocol.h"

#include "core/Log.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QMap>

namespace {

using StringMap = QMap<QString, QString>;

// polkit's subject: a kind and its details, (sa{sv}).
struct PolkitSubject {
    QString kind;
    QVariantMap details;
};

// polkit lets the administrator prompt appear for this call.
constexpr uint allowUserInteraction = 1;

}  // namespace

Q_DECLARE_METATYPE(PolkitSubject)

namespace {

QDBusArgument& operator<<(QDBusArgument& argument, const PolkitSubject& subject) {
    argument.beginStructure();
    argument << subject.kind << subject.details;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, PolkitSubject& subject) {
    argument.beginStructure();
    argument >> subject.kind >> subject.details;
    argument.endStructure();
    return argument;
}

Authorization answerOf(const QDBusMessage& reply) {
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return Authorization::refused;
    const QDBusArgument result = reply.arguments().constFirst().value<QDBusArgument>();
    bool authorized = false;
    bool challenge = false;
    StringMap details;
    result.beginStructure();
    result >> authorized >> challenge >> details;
    result.endStructure();
    if (authorized)
        return Authorization::allowed;
    return details.value(QStringLiteral("polkit.dismissed")) == QLatin1String("true")
               ? Authorization::dismissed
               : Authorization::refused;
}

}  // namespace

PolkitAuthority::PolkitAuthority(QDBusConnection bus, QObject* parent)
    : QObject(parent), bus_(std::move(bus)) {
    qDBusRegisterMetaType<PolkitSubject>();
    qDBusRegisterMetaType<StringMap>();
}

void PolkitAuthority::check(const QString& busName,
                            std::function<void(Authorization answer)> done) {
    QDBusMessage call =
        QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.PolicyKit1"),
                                       QStringLiteral("/org/freedesktop/PolicyKit1/Authority"),
                                       QStringLiteral("org.freedesktop.PolicyKit1.Authority"),
                                       QStringLiteral("CheckAuthorization"));
    const PolkitSubject subject{QStringLiteral("system-bus-name"),
                                {{QStringLiteral("name"), busName}}};
    call << QVariant::fromValue(subject) << localport::polkitAction
         << QVariant::fromValue(StringMap()) << allowUserInteraction << QString();
    // The administrator may take a while to type a password; clients wait as long.
    auto* pending =
        new QDBusPendingCallWatcher(bus_.asyncCall(call, localport::promptWaitMilliseconds), this);
    connect(pending, &QDBusPendingCallWatcher::finished, this,
            [done = std::move(done)](QDBusPendingCallWatcher* finished) {
                finished->deleteLater();
                const QDBusMessage reply = finished->reply();
                if (reply.type() == QDBusMessage::ErrorMessage)
                    ZMRLogLevel1(QStringLiteral("polkit did not answer: %1 %2")
                                     .arg(reply.errorName(), reply.errorMessage()));
                done(answerOf(reply));
            });
}
