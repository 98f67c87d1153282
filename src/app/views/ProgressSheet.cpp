#include "views/ProgressSheet.h"

#include <QLabel>
#include <QProgressBar>
#include <QVBoxLayout>

namespace views {

ProgressSheet::ProgressSheet(QWidget* parent)
    : QDialog(parent),
      message_(new QLabel(this)),
      activity_(new QLabel(this)),
      bar_(new QProgressBar(this)) {
    setWindowTitle(QStringLiteral("Working…"));
    setWindowModality(Qt::WindowModal);
    setWindowFlags(windowFlags() & ~Qt::WindowCloseButtonHint);
    message_->setWordWrap(true);
    message_->setMinimumWidth(360);
    message_->setAlignment(Qt::AlignCenter);
    activity_->setAlignment(Qt::AlignCenter);
    activity_->setVisible(false);
    QFont smaller = activity_->font();
    smaller.setPointSizeF(smaller.pointSizeF() * 0.9);
    activity_->setFont(smaller);
    bar_->setRange(0, 0);
    bar_->setTextVisible(false);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(message_);
    layout->addWidget(activity_);
    layout->addWidget(bar_);
}

void ProgressSheet::setActivity(const QString& detail, int done, int count) {
    activity_->setText(detail);
    activity_->setVisible(!detail.isEmpty());
    bar_->setRange(0, count);
    bar_->setValue(done);
    bar_->setTextVisible(count > 0);
    bar_->setFormat(QStringLiteral("%v of %m ports done"));
    adjustSize();
}

void ProgressSheet::setMessage(const QString& message) {
    message_->setText(message);
}

QString ProgressSheet::message() const {
    return message_->text();
}

}  // namespace views
