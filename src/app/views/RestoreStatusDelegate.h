#pragma once

#include <QStyledItemDelegate>

namespace views {

// The device table's restore status, with a bar behind it while a restore reports progress.
class RestoreStatusDelegate final : public QStyledItemDelegate {
  public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
};

}  // namespace views
