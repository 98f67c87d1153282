#pragma once

#include <QDBusConnection>
#include <QObject>

#include <functional>

// Asks polkit, on the system bus, whether a bus name may perform the helper's action. No answer
// at all (no polkit, an error) counts as no.
class PolkitAuthority final : public QObject {
    Q_OBJECT

  public:
    explicit PolkitAuthority(QDBusConnection bus, QObject* parent = nullptr);

    void check(const QString& busName, std::function<void(bool allowed)> done);

  private:
    QDBusConnection bus_;
};
