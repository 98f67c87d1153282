#pragma once

#include "localport/HelperProtocol.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QObject>

namespace testing_support {

// A helper of the test's own on a bus connection of its own: answers the version and status it
// is given, or nothing at all while `silent`.
class FakeHelper final : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.kestrune.TarvelHelperProtocol")

  public:
    explicit FakeHelper(QDBusConnection bus) : bus_(std::move(bus)) {
        bus_.registerObject(localport::helperObjectPath, this,
                            QDBusConnection::ExportScriptableSlots);
    }
    ~FakeHelper() override { quit(); }

    bool start() { return bus_.registerService(localport::helperLabel); }
    void quit() { bus_.unregisterService(localport::helperLabel); }

    qint64 version = localport::helperVersion;
    qint64 status = 0;
    bool silent = false;
    int calls = 0;

  public slots:
    Q_SCRIPTABLE qint64 GetVersion() { return answer(version); }
    Q_SCRIPTABLE qint64 EnterDFUMode() { return answer(status); }
    Q_SCRIPTABLE qint64 Reboot() { return answer(status); }

  private:
    qint64 answer(qint64 value) {
        ++calls;
        if (silent)
            setDelayedReply(true);
        return value;
    }

    QDBusConnection bus_;
};

}  // namespace testing_support
