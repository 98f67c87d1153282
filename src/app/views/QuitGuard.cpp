#include "views/QuitGuard.h"

#include "app/AppDelegate.h"

#include <QCloseEvent>
#include <QWidget>

namespace views {

QuitGuard::QuitGuard(app::AppDelegate& delegate, QObject* parent)
    : QObject(parent), delegate_(delegate) {}

void QuitGuard::watch(QWidget* window) {
    windows_ << window;
    window->installEventFilter(this);
}

bool QuitGuard::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() != QEvent::Close)
        return false;
    auto* window = qobject_cast<QWidget*>(watched);
    if (window && isLastOpenWindow(window) && !delegate_.applicationShouldTerminate()) {
        event->ignore();
        return true;
    }
    return false;
}

bool QuitGuard::isLastOpenWindow(const QWidget* window) const {
    return std::none_of(windows_.begin(), windows_.end(), [window](const QPointer<QWidget>& other) {
        return other && other != window && other->isVisible();
    });
}

}  // namespace views
