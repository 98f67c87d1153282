#include "views/ToolsMenu.h"

#include "views/DevicePanel.h"
#include "views/DfuPortWindow.h"
#include "views/MainWindow.h"

#include "core/RealHomeFolder.h"
#include "core/ZMRUnifiedLogger.h"

#include <QDesktopServices>
#include <QFileInfo>
#include <QKeySequence>
#include <QMenu>
#include <QToolBar>
#include <QUrl>

namespace views {

ToolsMenu::ToolsMenu(MainWindow& window, app::DfuPortLookup& dfuPorts, DevicePanel& panel,
                     const QString& firmwareCachePath, QObject* parent)
    : QObject(parent), dfuPorts_(dfuPorts) {
    QMenu* tools = window.toolsMenu();
    tools->addSeparator();
    QAction* lookup =
        tools->addAction(QStringLiteral("DFU Port Lookup"), this, &ToolsMenu::showDfuPortLookup);
    lookup->setShortcut(QKeySequence(QStringLiteral("Ctrl+L")));
    window.toolBar()->addAction(lookup);
    addPlaces(*tools, firmwareCachePath);
    tools->addSeparator();
    addDeviceExports(*tools, panel);
}

ToolsMenu::~ToolsMenu() {
    delete dfuPortWindow_;
}

void ToolsMenu::addPlaces(QMenu& tools, const QString& firmwareCachePath) {
    const auto openFolder = [this, &tools](const QString& title, const QString& path) {
        // A place this machine does not have is not offered at all.
        if (!QFileInfo::exists(path))
            return;
        tools.addAction(title, this,
                        [path] { QDesktopServices::openUrl(QUrl::fromLocalFile(path)); });
    };
    openFolder(QStringLiteral("Open Apple Configurator"),
               QStringLiteral("/Applications/Apple Configurator.app"));
    openFolder(QStringLiteral("Show Cached Firmware Files"), firmwareCachePath);
    openFolder(QStringLiteral("Show Diagnostic Reports"),
               core::realHomeFolder() + QStringLiteral("/Library/Logs/DiagnosticReports"));
    tools.addAction(QStringLiteral("Show Log File"), this, [] {
        QDesktopServices::openUrl(
            QUrl::fromLocalFile(ZMRUnifiedLogger::sharedLogger().logFileURL()));
    });
}

void ToolsMenu::addDeviceExports(QMenu& tools, DevicePanel& panel) {
    tools.addAction(QStringLiteral("Copy Serial Numbers"), &panel, &DevicePanel::copySerialNumbers);
    tools.addAction(QStringLiteral("Export Selected Devices…"), &panel,
                    &DevicePanel::exportSelection);
    tools.addAction(QStringLiteral("Export History…"), &panel, &DevicePanel::exportHistory);
}

void ToolsMenu::showDfuPortLookup() {
    if (!dfuPortWindow_) {
        dfuPortWindow_ = new DfuPortWindow(dfuPorts_);
        dfuPortWindow_->setAttribute(Qt::WA_DeleteOnClose);
    }
    dfuPortWindow_->show();
    dfuPortWindow_->raise();
    dfuPortWindow_->activateWindow();
}

}  // namespace views
