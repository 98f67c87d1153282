#pragma once

#include "Authorization.h"

#include <QDBusConnection>
#include <QObject>

#include <functional>

// Asks polkit, on the system bus, whether a bus name may perform the helper's action, letting it
// prompt for an administrator's password. No answer at all (no polkit, an error, no answer within
// the prompt's time) counts as refused.
class PolkitAuthority final : public QObject {
    Q_OBJECT

  public:
    explicit PolkitAuthority(QDBusConnection bus, QObject* parent = nullptr);

    void check(const QString& busName, std::function<void(Authorization answer)> done);

  private:
    QDBusConnection bus_;
};
