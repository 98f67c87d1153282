#pragma once

#include <QWidget>

class QToolButton;

namespace views {

// A titled part of a window that folds down to its title, so a rarely used group does not take
// the room of a busy one. The title is a button: click, Space or Enter folds and unfolds it.
class CollapsibleSection : public QWidget {
    Q_OBJECT

  public:
    CollapsibleSection(const QString& title, QWidget* body, QWidget* parent = nullptr);

    void setExpanded(bool expanded);
    QToolButton* header() const { return header_; }
    QWidget* body() const { return body_; }

  signals:
    void expandedChanged(bool expanded);

  private:
    QToolButton* header_;
    QWidget* body_;
};

}  // namespace views
