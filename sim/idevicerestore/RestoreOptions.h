#pragma once

#include <QString>
#include <QStringList>

#include <cstdint>
#include <optional>

namespace simidevicerestore {

// The command line the restore engine gives the tool, read as the real tool's getopt_long reads
// it: short options may be clustered ("-eyP") or carry their value attached ("-i0x1A"), long ones
// take "--name=value" or "--name value", and the firmware path may stand anywhere.
struct Options {
    std::optional<std::uint64_t> ecid;
    bool erase = false;
    bool noInput = false;
    bool plainProgress = false;
    bool showVersion = false;
    bool showHelp = false;
    QString logFile;    // empty: a log named after the ECID in the working folder
    QString cachePath;  // accepted, and of no use to a simulated restore
    QString firmwarePath;
};

struct OptionsParse {
    std::optional<Options> options;
    QString error;  // why the line was refused
};

OptionsParse parseOptions(const QStringList& arguments);

// As strtoull(text, &tail, 0) reads it ("0x" hexadecimal, a leading "0" octal, else decimal);
// trailing text or a zero ECID is refused, as the real tool refuses them.
std::optional<std::uint64_t> parseEcid(const QString& text);

QString usageText(const QString& program);

}  // namespace simidevicerestore
