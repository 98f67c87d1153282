#include "views/ProgressSheet.h"

#include <QLabel>
#include <QProgressBar>
#include <QVBoxLayout>

namespace views {

ProgressSheet::ProgressSheet(QWidget* parent) : QDialog(parent), message_(new QLabel(this)) {
    setWindowTitle(QStringLiteral("Working…"));
    setWindowModality(Qt::WindowModal);
    setWindowFlags(windowFlags() & ~Qt::WindowCloseButtonHint);
    message_->setWordWrap(true);
    message_->setMinimumWidth(360);
    message_->setAlignment(Qt::AlignCenter);
    auto* busy = new QProgressBar(this);
    busy->setRange(0, 0);
    busy->setTextVisible(false);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(message_);
    layout->addWidget(busy);
}

void ProgressSheet::setMessage(const QString& message) {
    message_->setText(message);
}

QString ProgressSheet::message() const {
    return message_->text();
}

}  // namespace views
