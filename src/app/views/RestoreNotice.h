#pragma once

#include <QLabel>

namespace restore {
class RestoreSession;
}

namespace views {

// The line under the restore controls that says how the last batch ended: "Restore Complete"
// in green, or the session's error in red. Hidden until there is something to say.
class RestoreNotice : public QLabel {
    Q_OBJECT

  public:
    explicit RestoreNotice(const restore::RestoreSession& session, QWidget* parent = nullptr);

  private:
    void say(const QString& text, bool error);
};

}  // namespace views
