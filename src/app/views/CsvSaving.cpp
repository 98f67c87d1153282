#include "views/CsvSaving.h"

#include <QFileDialog>
#include <QMessageBox>
#include <QSaveFile>

namespace views {

void saveCsvAs(QWidget* parent, const QString& title, const QString& fileName,
               const QString& text) {
    const QString path =
        QFileDialog::getSaveFileName(parent, title, fileName, QStringLiteral("CSV files (*.csv)"));
    if (path.isEmpty())
        return;
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.write(text.toUtf8()) >= 0 && file.commit())
        return;
    QMessageBox::warning(parent, title,
                         QStringLiteral("Could not write %1: %2").arg(path, file.errorString()));
}

}  // namespace views
