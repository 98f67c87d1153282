#pragma once

#include <QGroupBox>

class QCheckBox;
class QLabel;

namespace unattended {
class BenchController;
}

namespace views {

// The "Unattended Bench" switch and its options, with a row per hub port under them. A thin
// binding of the bench controller: the switch turns the bench on and off; the options are read
// when it is turned on.
class UnattendedBenchGroupView final : public QGroupBox {
    Q_OBJECT
  public:
    explicit UnattendedBenchGroupView(unattended::BenchController& controller,
                                      QWidget* parent = nullptr);

  private:
    unattended::BenchController& controller_;
    QCheckBox* on_;
    QCheckBox* restore_;
    QCheckBox* recoveryAfter_;
    QLabel* summary_;
};

}  // namespace views
