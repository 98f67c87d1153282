#include "views/DiagnosticsDialog.h"

#include "core/Settings.h"
#include "core/SimulatorAddress.h"
#include "doctor/Doctor.h"

#include <QApplication>
#include <QClipboard>
#include <QDialogButtonBox>
#include <QFontDatabase>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace views {

DiagnosticsDialog::DiagnosticsDialog(QWidget* parent)
    : QDialog(parent), report_(new QPlainTextEdit(this)) {
    setWindowTitle(QStringLiteral("Diagnostics"));
    report_->setObjectName(QStringLiteral("diagnosticsReport"));
    report_->setReadOnly(true);
    report_->setLineWrapMode(QPlainTextEdit::WidgetWidth);
    report_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    QPushButton* again = buttons->addButton(QStringLiteral("Check Again"), QDialogButtonBox::ActionRole);
    QPushButton* copy = buttons->addButton(QStringLiteral("Copy"), QDialogButtonBox::ActionRole);
    connect(again, &QPushButton::clicked, this, &DiagnosticsDialog::refresh);
    connect(copy, &QPushButton::clicked, this,
            [this] { QApplication::clipboard()->setText(reportText()); });
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(report_);
    layout->addWidget(buttons);
    resize(760, 480);
    refresh();
}

QString DiagnosticsDialog::reportText() const {
    return report_->toPlainText();
}

void DiagnosticsDialog::refresh() {
    QApplication::setOverrideCursor(Qt::WaitCursor);
    // The application runs on the simulator exactly when it selected one at launch.
    const doctor::DoctorReport report =
        doctor::examine(doctor::Places::system(), core::Settings::shared(),
                        core::simulatorSocketFromEnvironment());
    report_->setPlainText(report.text());
    QApplication::restoreOverrideCursor();
}

}  // namespace views
