#pragma once

#include <QDialog>

class QLabel;
class QProgressBar;

namespace views {

// The sheet over a window while a hub sequence runs, with the sequence's latest text. It cannot
// be dismissed: the sequence ends it.
class ProgressSheet : public QDialog {
    Q_OBJECT

  public:
    explicit ProgressSheet(QWidget* parent);

    void setMessage(const QString& message);
    QString message() const;
    // What is being worked, under the message, and the ports done of how many in the bar
    // (which stays busy while `count` is 0).
    void setActivity(const QString& detail, int done, int count);

  protected:
    void reject() override {}

  private:
    QLabel* message_;
    QLabel* activity_;
    QProgressBar* bar_;
};

}  // namespace views
