#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <cstdint>
#include <optional>

namespace configurator {

// Where Apple Configurator installs its command-line tool.
inline constexpr auto appleToolPath = "/Applications/Apple Configurator.app/Contents/MacOS/cfgutil";

// How the per-device restore puts the tool on a pseudo-terminal: the system's `script` on macOS,
// our own tarvel-pty elsewhere (util-linux `script` exits 0 when terminated, which would turn a
// cancelled restore into a success).
enum class RestorePlatform { MacOS, Linux };

RestorePlatform currentRestorePlatform();

// The argument array of one device's restore, element 0 the launch path. `ptyPath` is used on
// Linux only. The ECID is written as a signed decimal, as the tool has always been given it.
QStringList deviceRestoreCommand(RestorePlatform platform, const QString& toolPath,
                                 const QString& ptyPath, std::uint64_t ecid,
                                 const std::optional<QString>& customIPSW);

// The restore of whatever single device the tool picks: plain output, no pseudo-terminal.
QStringList singleRestoreCommand(const QString& toolPath, const std::optional<QString>& customIPSW);

// One parsed progress line.
struct RestoreProgress {
    QVariant step;           // as the tool wrote it; normally text
    float progress = -1.0f;  // -1 when the line carries no "Progress"
};

// The progress a chunk of `--format json` output reports: the chunk's first non-empty line is the
// one read, later lines of the same chunk are not. Nothing when that line is not JSON or has no
// "Step".
std::optional<RestoreProgress> parseRestoreProgress(const QString& chunk);

// Why a line of the tool's standard output during a restore says nothing we can read. An error
// document ("Type": "Error") is the tool's answer, not a problem of this kind.
enum class ProgressLineProblem { NotText, NotJson, NoStep };

struct UnreadableProgressLine {
    ProgressLineProblem problem;
    QString line;  // empty for output that is not text at all
};

// Every line of a chunk that cannot be read, in order; lines that are empty or only whitespace do
// not count. Only the first line of a chunk is read for progress, but a later one that could not
// have been read either still says the tool's output is not what we understand.
QList<UnreadableProgressLine> unreadableProgressLines(const QString& chunk);

// A warning about one such line, naming the device, fit to print on one terminal line.
QString unreadableProgressWarning(std::uint64_t ecid, const UnreadableProgressLine& unreadable);

// What a chunk of the tool's output says about a failure: the reason of each error document
// ("Type": "Error"); on standard error also every other non-empty line.
QStringList errorLinesOf(const QString& chunk, bool standardError);

// The status text a progress value gives.
QString restoreStatusText(float progress);

}  // namespace configurator
