#include "views/UnattendedBenchGroupView.h"

#include "unattended/BenchController.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QSignalBlocker>

namespace views {

UnattendedBenchGroupView::UnattendedBenchGroupView(unattended::BenchController& controller,
                                                   QWidget* parent)
    : QWidget(parent),
      controller_(controller),
      on_(new QCheckBox(QStringLiteral("&Unattended Bench"), this)),
      restore_(new QCheckBox(QStringLiteral("Restore Automatically"), this)),
      recoveryAfter_(new QCheckBox(QStringLiteral("Start into Recovery After"), this)),
      summary_(new QLabel(this)) {
    setObjectName(QStringLiteral("unattendedBench"));
    on_->setObjectName(QStringLiteral("unattendedBenchSwitch"));
    on_->setToolTip(QStringLiteral("Put every Mac plugged into a hub port into DFU mode, and "
                                   "restore it when Restore Automatically is on"));
    QFont bold = on_->font();
    bold.setBold(true);
    on_->setFont(bold);
    restore_->setChecked(true);
    summary_->setTextFormat(Qt::PlainText);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(9, 2, 9, 2);
    layout->addWidget(on_);
    layout->addSpacing(12);
    layout->addWidget(restore_);
    layout->addWidget(recoveryAfter_);
    layout->addStretch(1);
    layout->addWidget(summary_);

    connect(on_, &QCheckBox::toggled, this, [this](bool on) {
        controller_.setOn(on, restore_->isChecked(), recoveryAfter_->isChecked());
    });
    connect(restore_, &QCheckBox::toggled, recoveryAfter_, &QWidget::setEnabled);
    connect(&controller_, &unattended::BenchController::onChanged, this, [this](bool on) {
        const QSignalBlocker quiet(on_);
        on_->setChecked(on);
        // The options hold for a whole run.
        restore_->setEnabled(!on);
        recoveryAfter_->setEnabled(!on && restore_->isChecked());
        if (!on)
            summary_->clear();
    });
    connect(&controller_, &unattended::BenchController::summaryChanged, summary_,
            &QLabel::setText);
    connect(&controller_, &unattended::BenchController::problem, summary_, &QLabel::setText);
}

}  // namespace views
