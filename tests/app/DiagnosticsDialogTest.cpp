#include "views/DiagnosticsDialog.h"
#include "views/MainWindow.h"

#include "core/AppState.h"

#include <QAction>
#include <QMenuBar>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

TEST(DiagnosticsDialog, TheHelpMenuOffersIt) {
    core::AppState state;
    views::MainWindow window(state, nullptr);
    QSignalSpy requested(&window, &views::MainWindow::diagnosticsRequested);

    QAction* diagnostics = nullptr;
    for (QAction* menu : window.menuBar()->actions())
        if (menu->text() == "&Help")
            for (QAction* action : menu->menu()->actions())
                if (action->text() == "Diagnostics…") diagnostics = action;
    ASSERT_NE(diagnostics, nullptr);
    diagnostics->trigger();
    EXPECT_EQ(requested.count(), 1);
}

TEST(DiagnosticsDialog, ShowsTheDoctorsReportForTheModeInUse) {
    QTemporaryDir folder;
    const QString socket = folder.filePath("nobody.sock");
    qputenv("TARVEL_SIM", socket.toLocal8Bit());

    views::DiagnosticsDialog dialog;
    qunsetenv("TARVEL_SIM");

    const QString text = dialog.reportText();
    EXPECT_TRUE(text.startsWith("Tarvel doctor, simulator mode\n")) << text.toStdString();
    EXPECT_TRUE(text.contains("FAIL simulator: "));
    EXPECT_TRUE(text.contains("fix: start it: tarvel-sim --socket " + socket + " &"));
}

}  // namespace
