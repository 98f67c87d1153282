#pragma once

#include "usb/LocalPortHelper.h"

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QObject>

#include <functional>

// One connection to the helper, made on the main thread. Calls go to the helper's bus name;
// when the name's owner goes away (the helper quit, crashed or was replaced) the connection is
// over and says so once through its invalidation handler. Calls still outstanding then end as
// the bus ends them, with their reply or their failure.
class HelperConnection final : public QObject {
    Q_OBJECT

  public:
    HelperConnection(QDBusConnection bus, int callTimeoutMilliseconds);

    void setInvalidationHandler(std::function<void()> handler);
    // Sends the call, which may take callTimeoutMilliseconds; its reply or its failure (refused,
    // dismissed, no reply, no helper) reaches the caller on the main thread.
    void call(const QString& method, LocalPortHelper::Reply reply,
              LocalPortHelper::Failure failure);

  private:
    void invalidate();

    QDBusConnection bus_;
    int callTimeoutMilliseconds_;
    QDBusServiceWatcher watcher_;
    std::function<void()> invalidationHandler_;
};
