#pragma once

#include <QList>
#include <QScrollArea>

class QGridLayout;

namespace app {
class BenchMap;
}

namespace views {

class BenchTileButton;

// The bench at a glance: a tile per usable hub port, grouped under each hub's serial, and one
// for this computer's own DFU port. Clicking a tile (or Space, Enter) selects its Mac; the
// arrow keys move between tiles; the context menu is the owner's to fill.
class BenchMapView : public QScrollArea {
    Q_OBJECT

  public:
    explicit BenchMapView(app::BenchMap& map, QWidget* parent = nullptr);

    const QList<BenchTileButton*>& tiles() const { return tiles_; }
    // Marks the tiles whose Macs are these rows of the device list.
    void setSelectedRows(const QList<int>& deviceRows);

  signals:
    // `extend`: Ctrl was held, so the tile's Mac joins the selection or leaves it.
    void tileClicked(int tile, bool extend);
    void tileMenuRequested(int tile, const QPoint& globalPosition);

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    void layOut();
    void refresh();
    void moveFocus(int from, int step);

    app::BenchMap& map_;
    QWidget* canvas_;
    QGridLayout* grid_ = nullptr;
    QList<BenchTileButton*> tiles_;
    QList<int> selectedRows_;
};

}  // namespace views
