#include "views/RestoreNotice.h"

#include "restore/RestoreSession.h"

namespace views {

RestoreNotice::RestoreNotice(const restore::RestoreSession& session, QWidget* parent)
    : QLabel(parent) {
    setVisible(false);
    setWordWrap(true);
    connect(&session, &restore::RestoreSession::restoreCompleteChanged, this, [this](bool show) {
        if (show)
            say(QStringLiteral("Restore Complete"), false);
    });
    connect(&session, &restore::RestoreSession::restoreErrorChanged, this,
            [this](bool show, const QString& message) {
                if (show)
                    say(message, true);
            });
}

void RestoreNotice::say(const QString& text, bool error) {
    setText(text);
    setStyleSheet(error ? QStringLiteral("QLabel { background: #fdecea; color: #b71c1c; "
                                         "padding: 6px; border-radius: 4px; }")
                        : QStringLiteral("QLabel { background: #e8f5e9; color: #1b5e20; "
                                         "padding: 6px; border-radius: 4px; }"));
    setVisible(true);
}

}  // namespace views
