#pragma once

#include "Authorization.h"
#include "LocalPortBackend.h"

#include <QDBusContext>
#include <QObject>
#include <QTimer>

#include <functional>

// The helper's object on the bus. Every call is authorised first; an unauthorised caller gets
// the NotAuthorized error, one whose administrator dismissed the prompt the Dismissed error, and
// nothing is done. When no call has come for the idle time the
// service says so, and the helper quits: the bus starts it again on the next call.
class HelperService final : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.kestrune.TarvelHelperProtocol")

  public:
    // Decides whether the sender may use the helper; done may be called later, once.
    using Authorize =
        std::function<void(const QString& sender, std::function<void(Authorization answer)> done)>;

    HelperService(LocalPortBackend& backend, Authorize authorize, int idleSeconds,
                  QObject* parent = nullptr);

  public slots:
    Q_SCRIPTABLE qint64 GetVersion();
    Q_SCRIPTABLE qint64 EnterDFUMode();
    Q_SCRIPTABLE qint64 Reboot();

  signals:
    void idle();

  private:
    qint64 answerWhenAuthorised(std::function<qint64()> work);

    LocalPortBackend& backend_;
    Authorize authorize_;
    QTimer idleTimer_;
    int callsInProgress_ = 0;
};
