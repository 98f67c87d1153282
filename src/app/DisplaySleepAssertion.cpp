#include "app/DisplaySleepAssertion.h"

#include "core/Log.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

#include <atomic>

namespace app {
namespace {

std::atomic<bool> assertionNotYetTaken{true};

}  // namespace

void DisplaySleepAssertion::takeOnce(const QString& reason) {
    if (!assertionNotYetTaken.exchange(false))
        return;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    QDBusMessage inhibit = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.ScreenSaver"),
        QStringLiteral("/org/freedesktop/ScreenSaver"),
        QStringLiteral("org.freedesktop.ScreenSaver"), QStringLiteral("Inhibit"));
    inhibit << QStringLiteral("Tarvel") << reason;
    // Asked without waiting, so a slow session bus never delays the first window.
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(inhibit));
    QObject::connect(
        watcher, &QDBusPendingCallWatcher::finished, [](QDBusPendingCallWatcher* call) {
            const QDBusPendingReply<uint> reply = *call;
            if (reply.isError())
                ZMRLogDebug(
                    QStringLiteral("Display sleep not prevented: %1").arg(reply.error().message()));
            call->deleteLater();
        });
}

}  // namespace app
