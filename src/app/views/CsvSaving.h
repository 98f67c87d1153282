#pragma once

#include <QString>

class QWidget;

namespace views {

// Asks where to save `text` as a CSV file (suggesting `fileName`) and writes it there whole or
// not at all; a failure is told in a warning over `parent`.
void saveCsvAs(QWidget* parent, const QString& title, const QString& fileName, const QString& text);

}  // namespace views
