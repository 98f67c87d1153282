#include "views/CollapsibleSection.h"

#include <QToolButton>
#include <QVBoxLayout>

namespace views {

CollapsibleSection::CollapsibleSection(const QString& title, QWidget* body, QWidget* parent)
    : QWidget(parent), header_(new QToolButton(this)), body_(body) {
    header_->setText(title);
    header_->setCheckable(true);
    header_->setChecked(true);
    header_->setAutoRaise(true);
    header_->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    header_->setArrowType(Qt::DownArrow);
    header_->setAccessibleName(title);
    QFont bold = header_->font();
    bold.setBold(true);
    header_->setFont(bold);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(header_);
    layout->addWidget(body_);
    connect(header_, &QToolButton::toggled, this, [this](bool expanded) {
        header_->setArrowType(expanded ? Qt::DownArrow : Qt::RightArrow);
        header_->setToolTip(expanded ? tr("Fold this group down to its title")
                                     : tr("Show this group"));
        body_->setVisible(expanded);
        emit expandedChanged(expanded);
    });
}

void CollapsibleSection::setExpanded(bool expanded) {
    header_->setChecked(expanded);
}

}  // namespace views
