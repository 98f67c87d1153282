#pragma once

#include <QDialog>

class QPlainTextEdit;

namespace views {

// Help > Diagnostics: the report `tarvel-cli doctor` prints, for the mode the application runs
// in, with the fix under each missing piece.
class DiagnosticsDialog : public QDialog {
    Q_OBJECT

  public:
    explicit DiagnosticsDialog(QWidget* parent = nullptr);

    QString reportText() const;

  public slots:
    // Examines the machine again; the helper's answer may take a few seconds to come.
    void refresh();

  private:
    QPlainTextEdit* report_;
};

}  // namespace views
