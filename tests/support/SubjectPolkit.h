#pragma once

#include "support/PrivateBus.h"

#include <QDBusMessage>
#include <QProcess>
#include <QStringList>

namespace testing_support {

// A polkit authority on the private bus that authorises only the bus names it is told to, and
// can answer late or answer that the prompt was dismissed (tests/support/polkit_per_subject.py).
class SubjectPolkit {
  public:
    explicit SubjectPolkit(const PrivateBus& bus);
    ~SubjectPolkit();
    SubjectPolkit(const SubjectPolkit&) = delete;
    SubjectPolkit& operator=(const SubjectPolkit&) = delete;

    bool isRunning() const { return running_; }
    void allow(const QString& busName);
    void setDelay(int milliseconds);
    void setDismissed(bool dismissed);
    // The subjects asked about so far, in order.
    QStringList asked();

  private:
    QDBusMessage control(const QString& method, const QVariantList& arguments = {});

    QDBusConnection connection_;
    QProcess authority_;
    bool running_ = false;
};

}  // namespace testing_support
