#pragma once

#include "app/BenchMap.h"

#include <QAbstractButton>

namespace views {

// One port of the bench map, drawn large enough to read from across the bench: the port number,
// the state as a word on its colour (with the percentage while restoring) and the model's name.
class BenchTileButton : public QAbstractButton {
    Q_OBJECT

  public:
    explicit BenchTileButton(QWidget* parent = nullptr);

    void display(const app::BenchTile& tile, const app::BenchTileLook& look);
    // The Mac on this port is selected in the device table.
    void setSelected(bool selected);
    bool isSelected() const { return selected_; }
    // The state's word as the tile shows it, e.g. "Restoring 42%".
    QString stateText() const;

    QSize sizeHint() const override;

  protected:
    void paintEvent(QPaintEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

  private:
    app::BenchTile tile_;
    app::BenchTileLook look_;
    bool selected_ = false;
    bool shown_ = false;
};

}  // namespace views
