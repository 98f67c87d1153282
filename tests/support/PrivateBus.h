#pragma once

#include <QDBusConnection>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>

namespace testing_support {

// A test killed at its time limit must not leave its bus or services running.
void endWithThisProcess(QProcess& process);

// A dbus-daemon of the test's own (session configuration), stopped when it goes. Processes the
// test starts reach it as their system and session bus through the environment.
class PrivateBus {
  public:
    PrivateBus();
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    bool isRunning() const { return !address_.isEmpty(); }
    const QString& address() const { return address_; }
    // A connection of its own, under a name unique in this process.
    QDBusConnection connect(const QString& name) const;
    // The environment with both buses pointed at this daemon.
    QProcessEnvironment environment() const;
    // Waits until the name has an owner, or until it has none.
    bool waitForOwner(const QString& name, bool owned, int milliseconds = 10000) const;

  private:
    QProcess daemon_;
    QString address_;
    mutable QStringList connections_;
};

}  // namespace testing_support
