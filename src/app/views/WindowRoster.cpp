#include "views/WindowRoster.h"

#include <QEvent>
#include <QWidget>
#include <QWindow>

namespace views {
namespace {

void raise(QWidget* window) {
    window->show();
    window->raise();
    window->activateWindow();
    if (QWindow* handle = window->windowHandle())
        handle->requestActivate();
}

}  // namespace

WindowRoster::WindowRoster(QWidget* mainWindow, QObject* parent)
    : QObject(parent), main_(mainWindow) {
    main_->installEventFilter(this);
}

void WindowRoster::watch(QWidget* window) {
    windows_.removeAll(nullptr);
    windows_ << window;
    window->installEventFilter(this);
}

bool WindowRoster::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::WindowActivate)
        lastActive_ = qobject_cast<QWidget*>(watched);
    return QObject::eventFilter(watched, event);
}

QWidget* WindowRoster::frontWindow() const {
    if (lastActive_ && lastActive_->isVisible())
        return lastActive_;
    if (main_ && main_->isVisible())
        return main_;
    for (const QPointer<QWidget>& window : windows_)
        if (window && window->isVisible())
            return window;
    return nullptr;
}

void WindowRoster::bringToFront() {
    if (QWidget* window = frontWindow())
        raise(window);
}

void WindowRoster::showMainWindow() {
    if (main_)
        raise(main_);
}

}  // namespace views
