#include "views/OptionsSheet.h"

#include "app/OptionsSheetModel.h"

#include "core/SettingsKeys.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QVBoxLayout>

#include <algorithm>

namespace views {
namespace {

namespace keys = core::keys;

QLabel* note(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setWordWrap(true);
    QFont smaller = label->font();
    smaller.setPointSizeF(smaller.pointSizeF() * 0.9);
    label->setFont(smaller);
    return label;
}

QHBoxLayout* row(std::initializer_list<QWidget*> widgets) {
    auto* layout = new QHBoxLayout;
    for (QWidget* widget : widgets) layout->addWidget(widget);
    layout->addStretch();
    return layout;
}

}  // namespace

OptionsSheet::OptionsSheet(app::OptionsSheetModel& model, QWidget* parent)
    : QDialog(parent), model_(model) {
    setWindowTitle(QStringLiteral("Options"));
    setWindowModality(Qt::WindowModal);
    auto* content = new QWidget;
    auto* groups = new QVBoxLayout(content);
    groups->setContentsMargins(0, 0, 0, 0);
    for (QWidget* group : {ipswAndCacheGroup(), stayInFrontGroup(), hubPowerGroup(),
                           restoreQueueGroup(), eventScriptGroup()})
        groups->addWidget(group);
    // The notes make the sheet taller than a small screen: the groups scroll, the Close button
    // stays in view.
    auto* scroll = new QScrollArea(this);
    scroll->setWidget(content);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(scroll);
    layout->addWidget(buttons);

    constexpr int width = 640;
    const QMargins margins = layout->contentsMargins();
    const int wanted = groups->totalHeightForWidth(width - margins.left() - margins.right()) +
                       buttons->sizeHint().height() + layout->spacing() + margins.top() +
                       margins.bottom();
    const QScreen* shown = parent ? parent->screen() : QGuiApplication::primaryScreen();
    const int room = shown ? shown->availableGeometry().height() * 9 / 10 : wanted;
    setMinimumWidth(width);
    resize(width, std::min(wanted, room));
}

QWidget* OptionsSheet::ipswAndCacheGroup() {
    auto* group = new QGroupBox(QStringLiteral("Restore"), this);
    auto* layout = new QVBoxLayout(group);
    layout->addWidget(note(
        QStringLiteral(
            "The most recent version of macOS will be downloaded, cached, and restored unless a "
            "custom IPSW is specified. Apple Configurator has a large temporary cache for each "
            "device restored. It is recommend to remove it to prevent running out of disk space.  "
            "Requires Full Disk Access. Does not affect cached images (IPSWs)."),
        group));
    auto* showCached = new QPushButton(QStringLiteral("Show Cached IPSWs"), group);
    connect(showCached, &QPushButton::clicked, this, [this] { model_.showCachedIPSWs(); });
    layout->addLayout(
        row({addToggle(keys::useCustomIPSW, QStringLiteral("Use Custom IPSW")),
             selectPathButton(keys::customIPSWPath, QStringLiteral("Firmware files (*.ipsw)")),
             showCached}));
    auto* emptyNow = new QPushButton(QStringLiteral("Empty Now"), group);
    connect(emptyNow, &QPushButton::clicked, this, &OptionsSheet::emptyTemporaryCache);
    layout->addLayout(row(
        {addToggle(keys::removeACCache, QStringLiteral("Remove Apple Configurator temporary cache "
                                                       "before each restore")),
         emptyNow}));
    return group;
}

QWidget* OptionsSheet::stayInFrontGroup() {
    auto* group = new QGroupBox(QStringLiteral("Stay in Front"), this);
    auto* layout = new QFormLayout(group);
    layout->addRow(QStringLiteral("Keep Tarvel in front after putting in to DFU mode (seconds)"),
                   addTextField(keys::stayInFrontAfterDFUSecs));
    layout->addRow(
        note(QStringLiteral("When a device is put into DFU mode, a Finder window will sometimes "
                            "appear. This setting will force Tarvel in front for the specified "
                            "number of seconds."),
             group));
    return group;
}

QWidget* OptionsSheet::hubPowerGroup() {
    auto* group = new QGroupBox(QStringLiteral("Acroname Hubs"), this);
    auto* layout = new QVBoxLayout(group);
    layout->addWidget(addToggle(keys::acronameSkipDFUSDPMode,
                                QStringLiteral("Enable Acroname Hub Power Delivery Mode")));
    layout->addWidget(note(
        QStringLiteral(
            "If this setting is enabled, the Acroname hub will negotiate power delivery mode and "
            "provide all available power per device. If this setting is disabled, negotiation will "
            "be turned off and only a limited amount of power will be provided (about 8 Watts or "
            "less per device). Turning this setting off may help if devices do not continue "
            "restoring after first restart."),
        group));
    layout->addWidget(addToggle(keys::acronameParallelHubs,
                                QStringLiteral("Work All Hubs at the Same Time")));
    layout->addWidget(note(
        QStringLiteral("If this setting is enabled, DFU, restart and recovery work every hub "
                       "at once, so a bench of several hubs takes about as long as one hub."),
        group));
    return group;
}

QWidget* OptionsSheet::restoreQueueGroup() {
    auto* group = new QGroupBox(QStringLiteral("Restore Queue"), this);
    auto* layout = new QFormLayout(group);
    layout->addRow(QStringLiteral("Time between restores (seconds):"),
                   addTextField(keys::timeBetweenProcesses));
    layout->addRow(
        addToggle(keys::shouldPlaySound, QStringLiteral("Play sound when restore is complete")));
    return group;
}

QWidget* OptionsSheet::eventScriptGroup() {
    auto* group = new QGroupBox(QStringLiteral("Event Script"), this);
    auto* layout = new QVBoxLayout(group);
    layout->addLayout(
        row({addToggle(keys::shouldUseEventScript, QStringLiteral("Use Event Script")),
             selectPathButton(keys::eventScriptPath, QString())}));
    return group;
}

QCheckBox* OptionsSheet::addToggle(const QString& key, const QString& label) {
    auto* toggle = new QCheckBox(label, this);
    toggle->setObjectName(key);
    connect(toggle, &QCheckBox::toggled, this, [this, key](bool on) { model_.setToggle(key, on); });
    toggles_ << toggle;
    return toggle;
}

QLineEdit* OptionsSheet::addTextField(const QString& key) {
    auto* field = new QLineEdit(this);
    field->setObjectName(key);
    field->setMaximumWidth(80);
    connect(field, &QLineEdit::textEdited, this,
            [this, key](const QString& text) { model_.setText(key, text); });
    textFields_ << field;
    return field;
}

QPushButton* OptionsSheet::selectPathButton(const QString& key, const QString& filter) {
    auto* button = new QPushButton(QStringLiteral("Select Path"), this);
    button->setObjectName(key);
    connect(button, &QPushButton::clicked, this, [this, key, filter, button] {
        const QString chosen =
            QFileDialog::getOpenFileName(this, QString(), model_.text(key), filter);
        if (chosen.isEmpty())
            return;
        model_.setText(key, chosen);
        button->setToolTip(chosen);
    });
    return button;
}

void OptionsSheet::emptyTemporaryCache() {
    const QString failure = model_.emptyTemporaryCacheNow();
    if (!failure.isEmpty())
        QMessageBox::warning(this, QStringLiteral("Options"), failure);
}

void OptionsSheet::reload() {
    for (QCheckBox* toggle : toggles_) {
        const QSignalBlocker quiet(toggle);
        toggle->setChecked(model_.toggle(toggle->objectName()));
    }
    for (QLineEdit* field : textFields_) field->setText(model_.text(field->objectName()));
    for (QPushButton* button : findChildren<QPushButton*>())
        if (!button->objectName().isEmpty())
            button->setToolTip(model_.text(button->objectName()));
}

QCheckBox* OptionsSheet::toggle(const QString& key) const {
    return findChild<QCheckBox*>(key);
}

QLineEdit* OptionsSheet::textField(const QString& key) const {
    return findChild<QLineEdit*>(key);
}

void OptionsSheet::showEvent(QShowEvent* event) {
    reload();
    QDialog::showEvent(event);
}

}  // namespace views
