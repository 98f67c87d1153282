#pragma once

#include <QList>
#include <QObject>
#include <QPointer>

class QWidget;

namespace app {
class AppDelegate;
}

namespace views {

// Closing the last window quits the application, so closing it is a quit request: while the
// delegate refuses to quit, the window stays open.
class QuitGuard : public QObject {
    Q_OBJECT

  public:
    QuitGuard(app::AppDelegate& delegate, QObject* parent = nullptr);

    // The application's windows; a close is a quit request only when no other one is open.
    void watch(QWidget* window);

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    bool isLastOpenWindow(const QWidget* window) const;

    app::AppDelegate& delegate_;
    QList<QPointer<QWidget>> windows_;
};

}  // namespace views
