#pragma once

#include <QMainWindow>

class QAction;
class QLabel;
class QMenu;
class QToolBar;
class QProgressBar;
class QSettings;

namespace core {
class AppState;
}

namespace views {

// The application's main window: toolbar, menus, the status line of the running operation, and
// the device area the device table takes over.
class MainWindow : public QMainWindow {
    Q_OBJECT

  public:
    // `windowState` remembers the window's place and size between launches; may be null.
    MainWindow(core::AppState& state, QSettings* windowState, QWidget* parent = nullptr);

    // Replaces the device area; the window owns the widget from then on.
    void setDeviceArea(QWidget* area);

    // View ▸ Bench Map: the bench map instead of the device table (checked) or the table.
    QAction* benchMapAction() const { return benchMapAction_; }
    QLabel* statusMessage() const { return statusMessage_; }
    QProgressBar* batchProgress() const { return progress_; }
    QLabel* batchProgressLabel() const { return progressLabel_; }
    // Keeps `text` in the status line for good: something the technician must not miss.
    void showLogProblem(const QString& text);
    QLabel* logProblem() const { return logProblem_; }
    // Where the device area's tools join the window's own.
    QMenu* toolsMenu() const { return toolsMenu_; }
    QToolBar* toolBar() const { return toolBar_; }

  signals:
    void hubWindowRequested();
    void optionsRequested();
    void quitRequested();
    void aboutRequested();
    void diagnosticsRequested();
    // The first time the window is on screen, for the start-up time in the log.
    void firstExposed();

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

  private:
    void buildActions();
    void buildMenus();
    void buildToolBar();
    void bindStatusLine();
    QWidget* emptyDeviceArea();

    core::AppState& state_;
    QSettings* windowState_;
    QLabel* statusMessage_;
    QLabel* logProblem_;
    QLabel* progressLabel_;
    QProgressBar* progress_;
    QAction* hubsAction_ = nullptr;
    QAction* optionsAction_ = nullptr;
    QAction* quitAction_ = nullptr;
    QAction* aboutAction_ = nullptr;
    QAction* benchMapAction_ = nullptr;
    QMenu* toolsMenu_ = nullptr;
    QToolBar* toolBar_ = nullptr;
    bool exposed_ = false;
};

}  // namespace views
