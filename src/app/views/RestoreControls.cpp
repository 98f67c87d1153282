#include "views/RestoreControls.h"

#include "app/DeviceTableController.h"
#include "restore/RestoreSession.h"

#include <QApplication>
#include <QCheckBox>
#include <QHBoxLayout>
#include <QKeySequence>
#include <QLabel>
#include <QPainter>
#include <QPixmap>
#include <QPushButton>

namespace views {
namespace {

// A small clock face, since not every desktop font has a clock symbol.
QLabel* clockSymbol() {
    QPixmap face(16, 16);
    face.fill(Qt::transparent);
    QPainter painter(&face);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(QApplication::palette().color(QPalette::WindowText), 1.5));
    painter.drawEllipse(QRectF(1.5, 1.5, 13, 13));
    painter.drawLine(QPointF(8, 8), QPointF(8, 4));
    painter.drawLine(QPointF(8, 8), QPointF(11, 9.5));
    painter.end();
    auto* label = new QLabel;
    label->setPixmap(face);
    return label;
}

QLabel* badge(const QString& text) {
    auto* label = new QLabel(text);
    label->setStyleSheet(QStringLiteral(
        "QLabel { background: #2e7d32; color: white; border-radius: 9px; padding: 2px 8px; }"));
    return label;
}

}  // namespace

RestoreControls::RestoreControls(app::DeviceTableController& controller,
                                 restore::RestoreSession& session, QWidget* parent)
    : QWidget(parent), controller_(controller), session_(session) {
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    addButtons(*row);
    row->addSpacing(12);
    addCacheSwitch(*row);
    row->addStretch(1);
    addSessionFigures(*row);
}

void RestoreControls::addButtons(QHBoxLayout& row) {
    restoreButton_ = new QPushButton(QStringLiteral("Restore"));
    restoreButton_->setToolTip(
        QStringLiteral("Restore the selected devices, which must all be in "
                       "DFU mode, one start after another"));
    cancelButton_ = new QPushButton(QStringLiteral("Cancel"));
    cancelButton_->setToolTip(
        QStringLiteral("Stop the restores under way; devices not started "
                       "yet are not started"));
    restoreButton_->setShortcut(QKeySequence(QStringLiteral("Ctrl+R")));
    cancelButton_->setShortcut(QKeySequence(QStringLiteral("Ctrl+.")));
    auto* refresh = new QPushButton(QStringLiteral("Refresh"));
    refresh->setShortcut(QKeySequence::Refresh);
    refresh->setToolTip(QStringLiteral("List the devices Apple Configurator sees now"));
    for (QPushButton* button : {restoreButton_, cancelButton_, refresh}) row.addWidget(button);

    connect(restoreButton_, &QPushButton::clicked, this, &RestoreControls::restoreRequested);
    connect(cancelButton_, &QPushButton::clicked, this, [this] { controller_.cancel(); });
    connect(refresh, &QPushButton::clicked, &controller_,
            &app::DeviceTableController::refreshListing);
}

void RestoreControls::addCacheSwitch(QHBoxLayout& row) {
    auto* removeCache = new QCheckBox(QStringLiteral("Remove Apple Configurator's cache first"));
    removeCache->setToolTip(
        QStringLiteral("Remove Apple Configurator's temporary files before "
                       "each restore"));
    removeCache->setChecked(session_.shouldRemoveCache());
    row.addWidget(removeCache);
    connect(removeCache, &QCheckBox::toggled, this,
            [this](bool on) { session_.setShouldRemoveCache(on); });
}

void RestoreControls::addSessionFigures(QHBoxLayout& row) {
    auto* restoreTime = new QLabel(session_.restoreTimeText());
    auto* freeSpace = new QLabel(session_.freeSpaceText());
    freeSpace->setToolTip(QStringLiteral("Measured on %1").arg(session_.freeSpaceVolume()));
    auto* restored = badge(QStringLiteral("Restored: 0"));
    row.addWidget(clockSymbol());
    row.addWidget(restoreTime);
    row.addSpacing(12);
    row.addWidget(freeSpace);
    row.addSpacing(12);
    row.addWidget(restored);

    connect(&session_, &restore::RestoreSession::restoreTimeChanged, restoreTime, &QLabel::setText);
    connect(&session_, &restore::RestoreSession::freeSpaceChanged, freeSpace, &QLabel::setText);
    connect(
        &session_, &restore::RestoreSession::restoredDevicesChanged, restored,
        [restored](int count) { restored->setText(QStringLiteral("Restored: %1").arg(count)); });
}

void RestoreControls::updateButtons(bool hasSelection) {
    restoreButton_->setEnabled(hasSelection);
    cancelButton_->setEnabled(session_.isBatchRunning());
}

}  // namespace views
