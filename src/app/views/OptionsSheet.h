#pragma once

#include <QDialog>

class QCheckBox;
class QLineEdit;
class QPushButton;

namespace app {
class OptionsSheetModel;
}

namespace views {

// The one place where users edit settings. Every control writes its key the moment it changes;
// there is nothing to apply or cancel.
class OptionsSheet : public QDialog {
    Q_OBJECT

  public:
    explicit OptionsSheet(app::OptionsSheetModel& model, QWidget* parent = nullptr);

    // Shows the values in the store now, which another process may have changed.
    void reload();

    QCheckBox* toggle(const QString& key) const;
    QLineEdit* textField(const QString& key) const;

  protected:
    void showEvent(QShowEvent* event) override;

  private:
    QWidget* ipswAndCacheGroup();
    QWidget* stayInFrontGroup();
    QWidget* hubPowerGroup();
    QWidget* restoreQueueGroup();
    QWidget* eventScriptGroup();

    QCheckBox* addToggle(const QString& key, const QString& label);
    QLineEdit* addTextField(const QString& key);
    QPushButton* selectPathButton(const QString& key, const QString& filter);
    void emptyTemporaryCache();

    app::OptionsSheetModel& model_;
    QList<QCheckBox*> toggles_;
    QList<QLineEdit*> textFields_;
};

}  // namespace views
