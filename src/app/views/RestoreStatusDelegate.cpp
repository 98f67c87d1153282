#include "views/RestoreStatusDelegate.h"

#include "app/DeviceListModel.h"

#include <QApplication>
#include <QStyle>

namespace views {

void RestoreStatusDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                                  const QModelIndex& index) const {
    const double progress = index.data(app::DeviceListModel::ProgressRole).toDouble();
    if (progress < 0 || progress >= 1) {
        QStyledItemDelegate::paint(painter, option, index);
        return;
    }
    QStyleOptionProgressBar bar;
    bar.rect = option.rect.adjusted(2, 3, -2, -3);
    bar.minimum = 0;
    bar.maximum = 1000;
    bar.progress = static_cast<int>(progress * 1000);
    // One line, however narrow the column: a long step ("Preparing image for restore") would
    // wrap and be clipped to nonsense.
    const QString text =
        QStringLiteral("%1%  %2").arg(qRound(progress * 100)).arg(index.data().toString());
    bar.text = option.fontMetrics.elidedText(text, Qt::ElideRight, bar.rect.width() - 8);
    bar.textVisible = true;
    bar.state = option.state | QStyle::State_Horizontal;
    QApplication::style()->drawControl(QStyle::CE_ProgressBar, &bar, painter);
}

}  // namespace views
