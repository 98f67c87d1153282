#pragma once

#include <QWidget>

class QHBoxLayout;
class QPushButton;

namespace app {
class DeviceTableController;
}
namespace restore {
class RestoreSession;
}

namespace views {

// The row over the device table: Restore, Cancel and Refresh, the switch for Apple
// Configurator's cache, and the session's restore time, free space and count of restored Macs.
class RestoreControls : public QWidget {
    Q_OBJECT

  public:
    RestoreControls(app::DeviceTableController& controller, restore::RestoreSession& session,
                    QWidget* parent = nullptr);

    QPushButton* restoreButton() const { return restoreButton_; }
    QPushButton* cancelButton() const { return cancelButton_; }
    // Restore needs a selection; Cancel, a batch under way.
    void updateButtons(bool hasSelection);

  signals:
    // Restore was clicked: the selected Macs are to be restored.
    void restoreRequested();

  private:
    void addButtons(QHBoxLayout& row);
    void addCacheSwitch(QHBoxLayout& row);
    void addSessionFigures(QHBoxLayout& row);

    app::DeviceTableController& controller_;
    restore::RestoreSession& session_;
    QPushButton* restoreButton_ = nullptr;
    QPushButton* cancelButton_ = nullptr;
};

}  // namespace views
