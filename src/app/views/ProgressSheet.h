#pragma once

#include <QDialog>

class QLabel;

namespace views {

// The sheet over a window while a hub sequence runs, with the sequence's latest text. It cannot
// be dismissed: the sequence ends it.
class ProgressSheet : public QDialog {
    Q_OBJECT

  public:
    explicit ProgressSheet(QWidget* parent);

    void setMessage(const QString& message);
    QString message() const;

  protected:
    void reject() override {}

  private:
    QLabel* message_;
};

}  // namespace views
