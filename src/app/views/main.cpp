#include "views/DesktopApplication.h"
#include "views/MessageBoxAlerts.h"
#include "views/MultimediaSounds.h"

#include "app/LaunchOptions.h"
#include "core/BundleInfo.h"
#include "core/BundledDefaults.h"
#include "core/Settings.h"
#include "core/SimulatorAddress.h"

#include <QApplication>
#include <QDateTime>
#include <QIcon>

#include <cstdio>

namespace {

constexpr int exitFailure = 1;
constexpr int exitUsage = 2;

int reportAndExit(int status, const QString& message) {
    std::fprintf(stderr, "tarvel: %s\n", qPrintable(message));
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    const qint64 launchedAt = QDateTime::currentMSecsSinceEpoch();
    QApplication application(argc, argv);
    QApplication::setApplicationDisplayName(QStringLiteral("Tarvel"));
    QGuiApplication::setDesktopFileName(QStringLiteral("com.kestrune.Tarvel"));
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/icons/tarvel.svg")));

    const auto options = app::LaunchOptions::parse(QApplication::arguments().mid(1));
    if (!options.error.isEmpty())
        return reportAndExit(exitUsage,
                             options.error + QStringLiteral("\n") + app::LaunchOptions::usage());
    if (options.showHelp) {
        std::fputs(qPrintable(app::LaunchOptions::usage()), stdout);
        return 0;
    }
    if (options.showVersion) {
        const core::BundleInfo& bundle = core::BundleInfo::shared();
        std::printf("tarvel %s (%s)\n", qPrintable(bundle.shortVersion()),
                    qPrintable(bundle.bundleVersion()));
        return 0;
    }
    if (options.simulatorSocket) {
        if (const auto problem = core::simulatorProblem(*options.simulatorSocket))
            return reportAndExit(exitFailure, *problem);
        core::selectSimulator(*options.simulatorSocket);
    }

    core::registerBundledDefaults(core::Settings::shared());
    // Installed before anything captures the shared alerts.
    static views::MessageBoxAlerts alerts;
    core::Alerts::install(&alerts);
    const auto sounds = views::installApplicationSounds();

    views::DesktopApplication desktop(launchedAt);
    desktop.start();
    const int status = QApplication::exec();
    core::Alerts::install(nullptr);
    return status;
}
