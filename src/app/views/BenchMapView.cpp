#include "views/BenchMapView.h"

#include "views/BenchTileButton.h"

#include "app/BenchMap.h"

#include <QApplication>
#include <QContextMenuEvent>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QVBoxLayout>

namespace views {
namespace {

// Two hubs side by side fill a 1280-pixel window; seven hubs and this Mac's port then need no
// scrolling at 1280 x 800.
constexpr int kGroupColumns = 2;
constexpr int kTilesPerRow = 5;

QLabel* groupTitle(const QString& text) {
    auto* title = new QLabel(text);
    QFont font = title->font();
    font.setBold(true);
    font.setPointSizeF(font.pointSizeF() * 1.2);
    title->setFont(font);
    return title;
}

}  // namespace

BenchMapView::BenchMapView(app::BenchMap& map, QWidget* parent)
    : QScrollArea(parent), map_(map), canvas_(new QWidget) {
    setWidgetResizable(true);
    setWidget(canvas_);
    setFrameShape(QFrame::NoFrame);
    setAccessibleName(QStringLiteral("Bench map"));
    connect(&map_, &app::BenchMap::tilesReplaced, this, &BenchMapView::layOut);
    connect(&map_, &app::BenchMap::tilesUpdated, this, &BenchMapView::refresh);
    layOut();
}

void BenchMapView::layOut() {
    const bool hadFocus = canvas_->isAncestorOf(QApplication::focusWidget());
    qDeleteAll(tiles_);
    tiles_.clear();
    delete canvas_->layout();
    qDeleteAll(canvas_->findChildren<QWidget*>(Qt::FindDirectChildrenOnly));

    grid_ = new QGridLayout(canvas_);
    grid_->setAlignment(Qt::AlignTop | Qt::AlignLeft);
    QString group = QStringLiteral("\n");
    QHBoxLayout* row = nullptr;
    int groups = 0;
    int inRow = 0;
    for (qsizetype i = 0; i < map_.tiles().size(); ++i) {
        const app::BenchTile& tile = map_.tiles()[i];
        if (tile.group != group || inRow == kTilesPerRow) {
            const bool newGroup = tile.group != group;
            group = tile.group;
            auto* box = new QWidget;
            auto* column = new QVBoxLayout(box);
            column->setContentsMargins(0, 0, 12, 8);
            column->setSpacing(2);
            if (newGroup)
                column->addWidget(groupTitle(tile.isHostPort() ? QStringLiteral("This Mac's DFU Port")
                                                               : tile.group));
            row = new QHBoxLayout;
            row->setSpacing(4);
            row->setAlignment(Qt::AlignLeft);
            column->addLayout(row);
            grid_->addWidget(box, groups / kGroupColumns, groups % kGroupColumns);
            ++groups;
            inRow = 0;
        }
        auto* button = new BenchTileButton;
        button->installEventFilter(this);
        const int index = static_cast<int>(i);
        connect(button, &QAbstractButton::clicked, this, [this, index] {
            emit tileClicked(index, QApplication::keyboardModifiers() & Qt::ControlModifier);
        });
        row->addWidget(button);
        tiles_ << button;
        ++inRow;
    }
    refresh();
    if (hadFocus && !tiles_.isEmpty())
        tiles_.first()->setFocus();
}

void BenchMapView::refresh() {
    for (qsizetype i = 0; i < tiles_.size() && i < map_.tiles().size(); ++i) {
        const app::BenchTile& tile = map_.tiles()[i];
        tiles_[i]->display(tile, map_.look(tile.state));
        tiles_[i]->setSelected(tile.deviceRow >= 0 && selectedRows_.contains(tile.deviceRow));
    }
}

void BenchMapView::setSelectedRows(const QList<int>& deviceRows) {
    selectedRows_ = deviceRows;
    refresh();
}

bool BenchMapView::eventFilter(QObject* watched, QEvent* event) {
    const int index = tiles_.indexOf(qobject_cast<BenchTileButton*>(watched));
    if (index < 0)
        return QScrollArea::eventFilter(watched, event);
    if (event->type() == QEvent::ContextMenu) {
        emit tileMenuRequested(index, static_cast<QContextMenuEvent*>(event)->globalPos());
        return true;
    }
    if (event->type() == QEvent::KeyPress) {
        switch (static_cast<QKeyEvent*>(event)->key()) {
            case Qt::Key_Left: moveFocus(index, -1); return true;
            case Qt::Key_Right: moveFocus(index, 1); return true;
            case Qt::Key_Up: moveFocus(index, -kTilesPerRow); return true;
            case Qt::Key_Down: moveFocus(index, kTilesPerRow); return true;
            default: break;
        }
    }
    return QScrollArea::eventFilter(watched, event);
}

void BenchMapView::moveFocus(int from, int step) {
    const int to = std::clamp(from + step, 0, static_cast<int>(tiles_.size()) - 1);
    tiles_[to]->setFocus(Qt::TabFocusReason);
    ensureWidgetVisible(tiles_[to]);
}

}  // namespace views
