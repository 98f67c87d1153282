#include "views/UnattendedBenchGroupView.h"

#include "unattended/BenchController.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QSignalBlocker>
#include <QTableView>
#include <QVBoxLayout>

namespace views {

UnattendedBenchGroupView::UnattendedBenchGroupView(unattended::BenchController& controller,
                                                   QWidget* parent)
    : QGroupBox(QStringLiteral("Hub Ports"), parent),
      controller_(controller),
      on_(new QCheckBox(QStringLiteral("Unattended Bench"), this)),
      restore_(new QCheckBox(QStringLiteral("Restore Automatically"), this)),
      recoveryAfter_(new QCheckBox(QStringLiteral("Start into Recovery After"), this)),
      summary_(new QLabel(this)) {
    setObjectName(QStringLiteral("unattendedBench"));
    on_->setObjectName(QStringLiteral("unattendedBenchSwitch"));
    on_->setToolTip(QStringLiteral("Put every Mac plugged into a hub port into DFU mode, and "
                                   "restore it when Restore Automatically is on"));
    restore_->setChecked(true);
    recoveryAfter_->setEnabled(true);
    auto* switches = new QHBoxLayout;
    switches->addWidget(on_);
    switches->addWidget(restore_);
    switches->addWidget(recoveryAfter_);
    switches->addStretch(1);
    switches->addWidget(summary_);

    auto* table = new QTableView(this);
    table->setModel(&controller_.model());
    table->horizontalHeader()->setStretchLastSection(true);
    table->verticalHeader()->hide();
    table->setSelectionMode(QAbstractItemView::NoSelection);
    table->setMaximumHeight(180);
    table->setVisible(false);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(switches);
    layout->addWidget(table);

    connect(on_, &QCheckBox::toggled, this, [this](bool on) {
        controller_.setOn(on, restore_->isChecked(), recoveryAfter_->isChecked());
    });
    connect(restore_, &QCheckBox::toggled, recoveryAfter_, &QWidget::setEnabled);
    connect(&controller_, &unattended::BenchController::onChanged, this, [this, table](bool on) {
        const QSignalBlocker quiet(on_);
        on_->setChecked(on);
        // The options hold for a whole run.
        restore_->setEnabled(!on);
        recoveryAfter_->setEnabled(!on && restore_->isChecked());
        table->setVisible(on);
    });
    connect(&controller_, &unattended::BenchController::summaryChanged, summary_,
            &QLabel::setText);
    connect(&controller_, &unattended::BenchController::problem, summary_, &QLabel::setText);
}

}  // namespace views
