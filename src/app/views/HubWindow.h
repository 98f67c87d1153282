#pragma once

#include <QMainWindow>
#include <QSet>
#include <QUuid>

class QAction;
class QLabel;
class QTableView;

namespace app {
class HubController;
}

namespace views {

class ProgressSheet;

// The hubs' ports as a table, with the sequences on the selected rows and the hub commands.
class HubWindow : public QMainWindow {
    Q_OBJECT

  public:
    explicit HubWindow(app::HubController& controller, QWidget* parent = nullptr);

    QSet<QUuid> selectedDevices() const;
    // Selects the row of the port named "HUB:PORT" and triggers `action` (one of the sequences)
    // on it, once the rows being built list that port. A port no rebuild lists is left alone.
    void runOnPort(const QString& port, QAction* action);
    QTableView* table() const { return table_; }
    ProgressSheet* progressSheet() const { return progressSheet_; }

    QAction* dfuAction() const { return dfuAction_; }
    QAction* restartAction() const { return restartAction_; }
    QAction* recoveryAction() const { return recoveryAction_; }
    QAction* refreshAction() const { return refreshAction_; }
    QAction* rebootHubAction() const { return rebootHubAction_; }
    QAction* toggleLEDAction() const { return toggleLEDAction_; }
    // Window ▸ Main Window: the way back to a main window that was closed.
    QAction* mainWindowAction() const { return mainWindowAction_; }

  signals:
    void closed();
    void mainWindowRequested();

  protected:
    void showEvent(QShowEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

  private:
    QAction* makeAction(const QString& label, const QIcon& icon,
                        void (app::HubController::*action)(const QSet<QUuid>&));
    void buildToolBar();
    void buildContextMenu();
    void buildMenus();
    void bindController();
    void updateActions();
    void updateStatus();
    void runPendingPortAction();

    app::HubController& controller_;
    QTableView* table_;
    ProgressSheet* progressSheet_;
    QLabel* status_;
    QAction* dfuAction_ = nullptr;
    QAction* restartAction_ = nullptr;
    QAction* recoveryAction_ = nullptr;
    QAction* refreshAction_ = nullptr;
    QAction* rebootHubAction_ = nullptr;
    QAction* toggleLEDAction_ = nullptr;
    QAction* mainWindowAction_ = nullptr;
    QString pendingPort_;
    QAction* pendingAction_ = nullptr;
};

}  // namespace views
