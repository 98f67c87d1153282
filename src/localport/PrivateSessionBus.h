#pragma once

#include <QDBusConnection>
#include <QProcess>
#include <QString>

// A dbus-daemon of this process's own, for a session-bus service when the login has no session
// bus (an SSH terminal, CI). It ends with this object, and with the process even when the object
// is never destroyed, and so do the services on it, which quit when their bus goes.
class PrivateSessionBus {
  public:
    PrivateSessionBus() = default;
    ~PrivateSessionBus();
    PrivateSessionBus(const PrivateSessionBus&) = delete;
    PrivateSessionBus& operator=(const PrivateSessionBus&) = delete;

    // Starts the daemon and connects to it; on failure says why in error.
    bool start(QString* error);
    const QString& address() const { return address_; }
    QDBusConnection connection() const;

  private:
    QProcess daemon_;
    QString address_;
};
