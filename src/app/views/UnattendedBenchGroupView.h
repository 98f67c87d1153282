#pragma once

#include <QWidget>

class QCheckBox;
class QLabel;

namespace unattended {
class BenchController;
}

namespace views {

// The "Unattended Bench" switch and its options on one line, the day so far at its end. A thin
// binding of the bench controller: the switch turns the bench on and off; the options are read
// when it is turned on. The ports' states show in the device table and on the bench map.
class UnattendedBenchGroupView final : public QWidget {
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
