#pragma once

#include <QGroupBox>

class FirmwareUpdater;
class QCheckBox;
class QListWidget;
class QPushButton;

namespace views {

class ProgressSheet;

// The group of the main window for the Mac cabled to this computer's own DFU port: DFU, restart
// and recovery, the two switches of the automatic cycle, and the Macs it restored.
class LocalDFUGroupView : public QGroupBox {
    Q_OBJECT

  public:
    explicit LocalDFUGroupView(FirmwareUpdater& updater, QWidget* parent = nullptr);

  private:
    void bind();
    void showError(bool show, const QString& text, void (FirmwareUpdater::*dismiss)());

    FirmwareUpdater& updater_;
    QPushButton* dfuButton_;
    QPushButton* restartButton_;
    QPushButton* recoveryButton_;
    QCheckBox* automaticDFU_;
    QCheckBox* restoreAutomatically_;
    QCheckBox* bootToRecovery_;
    QListWidget* restored_;
    ProgressSheet* sheet_ = nullptr;
};

}  // namespace views
