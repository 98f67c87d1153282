#include "views/MessageBoxAlerts.h"

#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QThread>

namespace views {

int MessageBoxAlerts::show(const core::Alert& alert) {
    if (QThread::currentThread() == qApp->thread())
        return showOnMainThread(alert);
    int chosen = 0;
    QMetaObject::invokeMethod(
        qApp, [&alert, &chosen] { chosen = showOnMainThread(alert); },
        Qt::BlockingQueuedConnection);
    return chosen;
}

int MessageBoxAlerts::showOnMainThread(const core::Alert& alert) {
    QMessageBox box(QApplication::activeWindow());
    box.setIcon(alert.style == core::Alert::Style::Warning ? QMessageBox::Warning
                                                           : QMessageBox::Information);
    box.setWindowTitle(QStringLiteral("Tarvel"));
    box.setText(alert.title);
    box.setInformativeText(alert.message);
    // Alert texts may carry what a server or a tool sent; none of it may become a link or markup.
    box.setTextFormat(Qt::PlainText);
    for (QLabel* label : box.findChildren<QLabel*>()) label->setTextFormat(Qt::PlainText);
    const QStringList titles =
        alert.buttons.isEmpty() ? QStringList{QStringLiteral("OK")} : alert.buttons;
    QList<QAbstractButton*> buttons;
    for (const QString& title : titles)
        buttons << box.addButton(
            title, buttons.isEmpty() ? QMessageBox::AcceptRole : QMessageBox::RejectRole);
    box.setDefaultButton(qobject_cast<QPushButton*>(buttons.front()));
    box.exec();
    const auto chosen = buttons.indexOf(box.clickedButton());
    return chosen < 0 ? static_cast<int>(buttons.size()) - 1 : static_cast<int>(chosen);
}

}  // namespace views
