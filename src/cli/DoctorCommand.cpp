#include "cli/DoctorCommand.h"

#include "core/Settings.h"
#include "doctor/Doctor.h"

#include <QJsonDocument>

#include <cstdio>

namespace cli {

void addDoctorCommand(CLI::App& app, CliContext& context) {
    CLI::App* command = app.add_subcommand(
        "doctor", "Check that everything the mode in use (hardware or --simulate) needs is in place");
    auto json = std::make_shared<bool>(false);
    command->add_flag("--json", *json, "print the findings as JSON");
    command->callback([&context, json] {
        context.action = [&context, json] {
            const doctor::DoctorReport report = doctor::examine(
                doctor::Places::system(), core::Settings::shared(), context.simulatorSocket());
            const QByteArray output = *json ? QJsonDocument(report.json()).toJson()
                                            : report.text().toUtf8();
            std::fwrite(output.constData(), 1, static_cast<size_t>(output.size()), stdout);
            return report.passed() ? exitSuccess : exitFailure;
        };
    });
}

}  // namespace cli
