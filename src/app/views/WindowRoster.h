#pragma once

#include <QList>
#include <QObject>
#include <QPointer>

class QWidget;

namespace views {

// The application's windows and the one the technician last worked in. Bringing the application
// to the front raises only windows that are open: a hub window that was closed stays closed (its
// showing would connect every hub again). The main window is never lost: closing it only hides
// it, and showMainWindow() brings it back from any other window's Window menu.
class WindowRoster : public QObject {
    Q_OBJECT

  public:
    explicit WindowRoster(QWidget* mainWindow, QObject* parent = nullptr);

    // A window besides the main one, followed until it is destroyed.
    void watch(QWidget* window);

    // The window last active if it is still open, else the main window, else any open window;
    // null when none is open.
    QWidget* frontWindow() const;
    void bringToFront();
    void showMainWindow();

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    QPointer<QWidget> main_;
    QList<QPointer<QWidget>> windows_;
    QPointer<QWidget> lastActive_;
};

}  // namespace views
