#pragma once

#include "usb/LocalPortHelper.h"

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QObject>

#include <functional>

// One connection to the helper, made on the main thread. Calls go to the helper's bus name;
// when the name's owner goes away (the helper quit, crashed or was replaced) the connection is
// over and says so once through its invalidation handler. Replies still outstanding then are
// never delivered: callers must not count on one.
class HelperConnection final : public QObject {
    Q_OBJECT

  public:
    HelperConnection(QDBusConnection bus, int callTimeoutMilliseconds);

    void setInvalidationHandler(std::function<void()> handler);
    // Sends the call; the reply, if one comes, reaches reply on the main thread. A D-Bus error
    // (refused, no reply, no helper) reaches nobody but the debug log.
    void call(const QString& method, LocalPortHelper::Reply reply);

  private:
    void invalidate();

    QDBusConnection bus_;
    int callTimeoutMilliseconds_;
    QDBusServiceWatcher watcher_;
    std::function<void()> invalidationHandler_;
};
