#include "views/BenchTileButton.h"

#include <QFontMetricsF>
#include <QKeyEvent>
#include <QPainter>
#include <QPainterPath>

namespace views {
namespace {

constexpr int kTileWidth = 112;
constexpr int kTileHeight = 116;

QFont scaled(QFont font, double factor, bool bold) {
    font.setPointSizeF(font.pointSizeF() * factor);
    font.setBold(bold);
    return font;
}

}  // namespace

BenchTileButton::BenchTileButton(QWidget* parent) : QAbstractButton(parent) {
    setFocusPolicy(Qt::StrongFocus);
    setContextMenuPolicy(Qt::DefaultContextMenu);
}

// The map is rebuilt after every burst of changes on the bench; most tiles stay as they were.
void BenchTileButton::display(const app::BenchTile& tile, const app::BenchTileLook& look) {
    if (shown_ && tile == tile_ && look == look_)
        return;
    shown_ = true;
    tile_ = tile;
    look_ = look;
    const QString port = tile.isHostPort() ? QStringLiteral("This Mac's DFU port")
                                           : QStringLiteral("Port %1").arg(tile.port);
    QStringList spoken{port};
    if (tile.deviceRow >= 0 && !tile.modelName.isEmpty())
        spoken << tile.modelName;
    spoken << stateText();
    setAccessibleName(spoken.join(QStringLiteral(", ")));
    QStringList tip{port};
    for (const QString& detail : {tile.modelIdentifier, tile.serialNumber})
        if (!detail.isEmpty())
            tip << detail;
    setToolTip(tip.join('\n'));
    update();
}

void BenchTileButton::setSelected(bool selected) {
    if (selected == selected_)
        return;
    selected_ = selected;
    update();
}

QString BenchTileButton::stateText() const {
    if (tile_.state == app::benchstate::restoring && tile_.progress >= 0)
        return QStringLiteral("%1 %2%").arg(look_.word).arg(qRound(tile_.progress * 100));
    return look_.word;
}

QSize BenchTileButton::sizeHint() const {
    return {kTileWidth, kTileHeight};
}

void BenchTileButton::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF box = QRectF(rect()).adjusted(3, 3, -3, -3);
    QPainterPath shape;
    shape.addRoundedRect(box, 8, 8);
    painter.fillPath(shape, QColor(look_.fill));
    if (tile_.state == app::benchstate::restoring && tile_.progress > 0) {
        // The part done, darker, along the bottom edge.
        QRectF done = box;
        done.setTop(box.bottom() - 8);
        done.setWidth(box.width() * std::min(1.0, tile_.progress));
        painter.fillRect(done, QColor(look_.fill).darker(150));
    }
    if (selected_ || hasFocus()) {
        QPen ring(selected_ ? palette().color(QPalette::Highlight) : QColor(look_.ink),
                  selected_ ? 4 : 2, hasFocus() && !selected_ ? Qt::DashLine : Qt::SolidLine);
        painter.setPen(ring);
        painter.drawRoundedRect(box.adjusted(1, 1, -1, -1), 7, 7);
    }

    const QRectF inner = box.adjusted(8, 4, -8, -6);
    painter.setPen(QColor(look_.ink));
    painter.setFont(scaled(font(), 1.9, true));
    painter.drawText(inner, Qt::AlignLeft | Qt::AlignTop, tile_.label);
    // The word as large as the tile allows: "Restoring 100%" needs a smaller size than "DFU".
    const QString word = stateText();
    QFont wordFont = scaled(font(), 1.35, true);
    while (QFontMetricsF(wordFont).horizontalAdvance(word) > inner.width() &&
           wordFont.pointSizeF() > font().pointSizeF() * 0.8)
        wordFont.setPointSizeF(wordFont.pointSizeF() * 0.92);
    painter.setFont(wordFont);
    painter.drawText(inner.adjusted(0, 30, 0, 0), Qt::AlignHCenter | Qt::AlignTop, word);
    if (tile_.deviceRow >= 0 && !tile_.modelName.isEmpty()) {
        painter.setFont(scaled(font(), 0.9, false));
        painter.drawText(inner.adjusted(0, 56, 0, 0),
                         Qt::AlignHCenter | Qt::AlignTop | Qt::TextWordWrap, tile_.modelName);
    }
}

// Space clicks, as for every button; Enter does too, since a tile looks nothing like a button.
void BenchTileButton::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        click();
        return;
    }
    QAbstractButton::keyPressEvent(event);
}

}  // namespace views
