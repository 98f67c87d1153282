#include "cli/DefaultsCommands.h"

#include "core/SettingRanges.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"

#include <QStringList>

#include <cstdio>
#include <optional>

namespace cli {
namespace {

const QString kDomain = QStringLiteral("com.kestrune.Tarvel");

void printLine(const QString& text) {
    std::printf("%s\n", qPrintable(text));
}

bool isBoolText(const QString& text) {
    const QString lower = text.toLower();
    return lower == "true" || lower == "false";
}

// Booleans print as 1 and 0, as the platform's tool prints them; everything else as stored.
QString formatValue(const QString& key, const QVariant& value) {
    if (value.typeId() == QMetaType::Bool)
        return value.toBool() ? "1" : "0";
    const core::SettingKey* known = core::findSettingKey(key);
    const QString text = value.toString();
    if (known && known->type == core::SettingType::Boolean && isBoolText(text))
        return core::textAsBool(text) ? "1" : "0";
    return text;
}

int readAll(core::Settings& settings) {
    QStringList names;
    for (const core::SettingKey& key : core::settingKeys()) names << key.name;
    for (const QString& key : settings.userKeys())
        if (!names.contains(key))
            names << key;

    qsizetype width = 0;
    for (const QString& name : names) width = std::max(width, name.size());
    for (const QString& name : names) {
        const QVariant user = settings.userValue(name);
        const QVariant fallback = settings.registeredDefault(name);
        QString value = QStringLiteral("(absent)");
        QString origin;
        if (user.isValid()) {
            value = formatValue(name, user);
            origin = QStringLiteral("set");
        } else if (fallback.isValid()) {
            value = formatValue(name, fallback);
            origin = QStringLiteral("default");
        }
        if (value.isEmpty())
            value = QStringLiteral("\"\"");
        printLine(QStringLiteral("%1  %2  %3")
                      .arg(name, -int(width))
                      .arg(value, -12)
                      .arg(origin)
                      .trimmed());
    }
    return exitSuccess;
}

int readOne(core::Settings& settings, const QString& key) {
    const QVariant value = settings.object(key);
    if (!value.isValid())
        return fail(
            exitFailure,
            QStringLiteral("The domain/default pair of (%1, %2) does not exist").arg(kDomain, key));
    printLine(formatValue(key, value));
    return exitSuccess;
}

std::optional<bool> parseBool(const QString& text) {
    const QString lower = text.toLower();
    if (lower == "true" || lower == "yes" || lower == "1")
        return true;
    if (lower == "false" || lower == "no" || lower == "0")
        return false;
    return std::nullopt;
}

// Turns the typed value of `defaults write` into what is stored, or explains why it cannot.
std::optional<QVariant> typedValue(const QString& type, const QString& text, QString& error) {
    bool ok = true;
    QVariant value;
    if (type == "-string") {
        value = text;
    } else if (type == "-bool" || type == "-boolean") {
        const auto parsed = parseBool(text);
        ok = parsed.has_value();
        if (ok)
            value = *parsed;
    } else if (type == "-int" || type == "-integer") {
        value = text.toLongLong(&ok);
    } else if (type == "-float") {
        value = text.toDouble(&ok);
    } else {
        error = QStringLiteral("unknown type %1 (use -bool, -int, -float or -string)").arg(type);
        return std::nullopt;
    }
    if (!ok)
        return std::nullopt;
    return value;
}

// The value is stored as given, as the platform's tool does; a known key that cannot use it says
// so now, rather than leaving the surprise for the next run on the bench.
void store(core::Settings& settings, const QString& key, const QVariant& value) {
    settings.setValue(key, value);
    const core::SettingKey* known = core::findSettingKey(key);
    if (!known)
        return;
    const QString problem = core::settingValueProblem(*known, value);
    if (!problem.isEmpty())
        std::fprintf(stderr, "tarvel-cli: warning: %s %s; \"%s\" was stored anyway\n",
                     qPrintable(key), qPrintable(problem), qPrintable(value.toString()));
}

int write(core::Settings& settings, const std::vector<std::string>& arguments) {
    QStringList args;
    for (const auto& argument : arguments) args << QString::fromStdString(argument);
    if (args.size() == 3 && args[1].startsWith('-') && args[1].size() > 2 &&
        args[1][1].isLetter()) {
        QString error;
        const auto value = typedValue(args[1], args[2], error);
        if (!value) {
            if (error.isEmpty())
                error = QStringLiteral("\"%1\" is not a valid %2 value for key %3")
                            .arg(args[2], args[1].mid(1), args[0]);
            return fail(exitUsage, QStringLiteral("defaults write: ") + error);
        }
        store(settings, args[0], *value);
        return exitSuccess;
    }
    const QStringList typeFlags{"-string", "-bool", "-boolean", "-int", "-integer", "-float"};
    if (args.size() == 2 && !typeFlags.contains(args[1])) {
        store(settings, args[0], args[1]);
        return exitSuccess;
    }
    return fail(
        exitUsage,
        QStringLiteral("usage: tarvel-cli defaults write KEY [-bool|-int|-float|-string] VALUE"));
}

int remove(core::Settings& settings, const QString& key) {
    if (!settings.userValue(key).isValid())
        return fail(exitFailure,
                    QStringLiteral("%1 is not set in %2; nothing was changed").arg(key, kDomain));
    settings.remove(key);
    return exitSuccess;
}

}  // namespace

void addDefaultsCommands(CLI::App& app, CliContext& context, core::Settings& settings) {
    CLI::App* defaults = app.add_subcommand("defaults", "Read and change Tarvel's preferences");
    defaults->require_subcommand(1);

    CLI::App* read =
        defaults->add_subcommand("read", "Print one preference, or all with their origin");
    auto readKey = std::make_shared<std::string>();
    read->add_option("KEY", *readKey, "preference key");
    read->callback([&context, &settings, readKey] {
        context.action = [&settings, readKey] {
            return readKey->empty() ? readAll(settings)
                                    : readOne(settings, QString::fromStdString(*readKey));
        };
    });

    CLI::App* writeCommand = defaults->add_subcommand(
        "write", "Set a preference: KEY [-bool|-int|-float|-string] VALUE (text when no type)");
    writeCommand->prefix_command();
    writeCommand->fallthrough(false);  // its arguments, "-bool" included, are all its own
    writeCommand->callback([&context, &settings, writeCommand] {
        context.action = [&settings, arguments = writeCommand->remaining()] {
            return write(settings, arguments);
        };
    });

    CLI::App* deleteCommand = defaults->add_subcommand("delete", "Remove a preference you set");
    auto deleteKey = std::make_shared<std::string>();
    deleteCommand->add_option("KEY", *deleteKey, "preference key")->required();
    deleteCommand->callback([&context, &settings, deleteKey] {
        context.action = [&settings, deleteKey] {
            return remove(settings, QString::fromStdString(*deleteKey));
        };
    });
}

}  // namespace cli
