#include "views/LocalDFUGroupView.h"

#include "views/ProgressSheet.h"

#include "localport/FirmwareUpdater.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>

namespace views {

LocalDFUGroupView::LocalDFUGroupView(FirmwareUpdater& updater, QWidget* parent)
    : QGroupBox(parent),
      updater_(updater),
      dfuButton_(new QPushButton(QStringLiteral("DFU Mode"))),
      restartButton_(new QPushButton(QStringLiteral("Restart"))),
      recoveryButton_(new QPushButton(QStringLiteral("Recovery"))),
      automaticDFU_(new QCheckBox(QStringLiteral("Automatic DFU"))),
      restoreAutomatically_(new QCheckBox(QStringLiteral("Restore Automatically"))),
      bootToRecovery_(new QCheckBox(QStringLiteral("Start into recovery after restore"))),
      restored_(new QListWidget) {
    dfuButton_->setToolTip(QStringLiteral("Put the Mac cabled to this Mac's DFU port into DFU mode"));
    restartButton_->setToolTip(QStringLiteral("Restart the Mac cabled to this Mac's DFU port"));
    recoveryButton_->setToolTip(
        QStringLiteral("Start the Mac cabled to this Mac's DFU port into recovery mode"));
    automaticDFU_->setToolTip(
        QStringLiteral("Automatically put Mac plugged into DFU port into DFU mode."));
    restoreAutomatically_->setToolTip(
        QStringLiteral("Automatically restore device when attached in DFU mode."));
    bootToRecovery_->setToolTip(
        QStringLiteral("After an automatic restore, start the Mac into recovery mode"));
    restored_->setMaximumHeight(90);
    restored_->setToolTip(QStringLiteral("Macs restored automatically on this port"));

    auto* layout = new QGridLayout(this);
    layout->addWidget(dfuButton_, 0, 0);
    layout->addWidget(restartButton_, 0, 1);
    layout->addWidget(recoveryButton_, 0, 2);
    layout->addWidget(automaticDFU_, 1, 0);
    layout->addWidget(restoreAutomatically_, 1, 1);
    layout->addWidget(bootToRecovery_, 1, 2);
    layout->addWidget(new QLabel(QStringLiteral("Restored automatically:")), 0, 3);
    layout->addWidget(restored_, 1, 3, 2, 1);
    layout->setColumnStretch(3, 1);
    bind();
}

void LocalDFUGroupView::bind() {
    connect(dfuButton_, &QPushButton::clicked, &updater_, &FirmwareUpdater::gogoDFUMode);
    connect(restartButton_, &QPushButton::clicked, &updater_, &FirmwareUpdater::restart);
    connect(recoveryButton_, &QPushButton::clicked, &updater_, &FirmwareUpdater::recovery);
    connect(automaticDFU_, &QCheckBox::toggled, &updater_, &FirmwareUpdater::setIsAutoDFUOn);
    connect(restoreAutomatically_, &QCheckBox::toggled, &updater_,
            &FirmwareUpdater::setIsAutoRestoreNotificationOn);
    connect(bootToRecovery_, &QCheckBox::toggled, &updater_, &FirmwareUpdater::setIsBootToRecoveryOn);

    connect(&updater_, &FirmwareUpdater::shouldDisableLocalButtonsChanged, this, [this](bool off) {
        for (QPushButton* button : {dfuButton_, restartButton_, recoveryButton_})
            button->setDisabled(off);
    });
    connect(&updater_, &FirmwareUpdater::restoredDevicesChanged, this,
            [this](const QStringList& devices) {
                restored_->clear();
                restored_->addItems(devices);
            });
    connect(&updater_, &FirmwareUpdater::showModalChanged, this, [this](bool show) {
        if (!sheet_)
            sheet_ = new ProgressSheet(window());
        sheet_->setMessage(updater_.updateMessage());
        sheet_->setVisible(show);
    });
    connect(&updater_, &FirmwareUpdater::updateMessageChanged, this, [this](const QString& text) {
        if (sheet_)
            sheet_->setMessage(text);
    });
    connect(&updater_, &FirmwareUpdater::showDFUErrorChanged, this, [this](bool show) {
        showError(show, FirmwareUpdater::dfuErrorText, &FirmwareUpdater::dismissDFUError);
    });
    connect(&updater_, &FirmwareUpdater::showRebootErrorChanged, this, [this](bool show) {
        showError(show, FirmwareUpdater::rebootErrorText, &FirmwareUpdater::dismissRebootError);
    });
    connect(&updater_, &FirmwareUpdater::showHelperErrorChanged, this, [this](bool show) {
        showError(show, updater_.helperErrorText(), &FirmwareUpdater::dismissHelperError);
    });
    // The cycle turns automatic DFU off itself when the helper refuses it.
    connect(&updater_, &FirmwareUpdater::isAutoDFUOnChanged, automaticDFU_, &QCheckBox::setChecked);
}

void LocalDFUGroupView::showError(bool show, const QString& text,
                                  void (FirmwareUpdater::*dismiss)()) {
    if (!show)
        return;
    auto* alert = new QMessageBox(QMessageBox::Warning, QStringLiteral("Tarvel"), text,
                                  QMessageBox::Ok, window());
    // A helper's error text comes from outside the application: never rich text.
    alert->setTextFormat(Qt::PlainText);
    alert->setAttribute(Qt::WA_DeleteOnClose);
    connect(alert, &QMessageBox::finished, &updater_, dismiss);
    alert->open();
}

}  // namespace views
