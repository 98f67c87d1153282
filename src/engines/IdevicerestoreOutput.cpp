#include "engines/IdevicerestoreOutput.h"

#include "configurator/RegistryListing.h"

#include <QRegularExpression>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace engines {
namespace {

constexpr qsizetype kKeptErrorLines = 5;

// How the engine's errors begin when they carry no "ERROR: " prefix (the 2025 builds and later).
constexpr std::array kErrorStarts{
    "Unable to ",        "Firmware file ", "Device did not reconnect",
    "Device failed to ", "RESTORE FAILED", "No device found",
    "Failed to ",        "Could not ",     "ERROR",
};
// Lines the engine prints under an error to say more about it.
constexpr std::array kHintStarts{"Make sure that ", "Device reconnected in "};
// The milestones before the Mac's own restore steps, as the queue names them.
struct Milestone {
    const char* start;
    const char* step;
};
constexpr auto kFirstStep = "Preparing restore";
constexpr std::array kMilestones{
    Milestone{"Found device in ", kFirstStep},
    Milestone{"Extracting filesystem from IPSW", "Extracting filesystem"},
    Milestone{"Getting ApNonce", "Personalizing firmware"},
    Milestone{"Waiting for device to enter restore mode", "Waiting for restore mode"},
};

// The share of the whole restore each step stands for, so the queue's progress runs once from 0
// to 1 as it does with Apple Configurator: the engine's own values start again at every step.
// Writing the filesystem ("Restoring image") is most of the time a restore takes.
struct Band {
    const char* step;
    float from;
    float to;
};
constexpr std::array kBands{
    Band{kFirstStep, 0.0f, 0.01f},
    Band{"Extracting filesystem", 0.01f, 0.03f},
    Band{"Personalizing firmware", 0.03f, 0.04f},
    Band{"Sending iBSS", 0.04f, 0.05f},
    Band{"Sending iBEC", 0.05f, 0.06f},
    Band{"Sending ", 0.06f, 0.08f},  // the recovery stage's other components
    Band{"Waiting for restore mode", 0.08f, 0.1f},
    Band{"Restoring image", 0.1f, 0.9f},
    Band{"Verifying restore", 0.9f, 0.95f},
    Band{"Flashing firmware", 0.95f, 0.99f},
};

// A restore-mode step without a band of its own keeps the progress where it is.
std::optional<Band> bandOf(const QString& step) {
    for (const Band& band : kBands)
        if (step == QLatin1String(band.step) ||
            (QLatin1String(band.step).endsWith(' ') && step.startsWith(QLatin1String(band.step))))
            return band;
    return std::nullopt;
}

bool startsWithAny(const QString& line, const auto& starts) {
    return std::any_of(starts.begin(), starts.end(),
                       [&](const char* start) { return line.startsWith(QLatin1String(start)); });
}

bool isError(const QString& line) {
    if (line.startsWith(QLatin1String("Status: ")))
        return line != QLatin1String("Status: Restore Finished");
    return startsWithAny(line, kErrorStarts);
}

std::optional<float> percentOf(const QString& line) {
    // "progress: 2 0.420000" (-P)
    static const QRegularExpression step(QStringLiteral(R"(^progress: \d+ (\d+(?:\.\d+)?)$)"));
    // "Uploading:  42.0" (-P) and "Uploading [=====     ]  42.0%" (a bar)
    static const QRegularExpression label(
        QStringLiteral(R"(^[A-Za-z][A-Za-z ]*:\s+(\d{1,3}\.\d+)$)"));
    static const QRegularExpression bar(
        QStringLiteral(R"(^[A-Za-z][A-Za-z ]*\s*\[[=>\- ]*\]\s*(\d{1,3}(?:\.\d+)?)%$)"));
    if (const auto match = step.match(line); match.hasMatch())
        return match.captured(1).toFloat();
    for (const QRegularExpression* pattern : {&label, &bar})
        if (const auto match = pattern->match(line); match.hasMatch())
            return match.captured(1).toFloat() / 100.0f;
    return std::nullopt;
}

QString milestoneOf(const QString& line) {
    static const QRegularExpression operation(QStringLiteral(R"(^([A-Z][A-Za-z0-9 ]+) \(\d+\)$)"));
    static const QRegularExpression sending(QStringLiteral(R"(^Sending (\S+) \(\d+ bytes\))"));
    if (const auto match = operation.match(line); match.hasMatch())
        return match.captured(1);
    if (const auto match = sending.match(line); match.hasMatch())
        return QStringLiteral("Sending ") + match.captured(1);
    for (const Milestone& milestone : kMilestones)
        if (line.startsWith(QLatin1String(milestone.start)))
            return QString::fromLatin1(milestone.step);
    return {};
}

QString afterPrefix(const QString& line, const char* prefix) {
    return line.startsWith(QLatin1String(prefix))
               ? line.mid(qsizetype(std::strlen(prefix))).trimmed()
               : QString();
}

}  // namespace

QList<IdevicerestoreOutput::Progress> IdevicerestoreOutput::readOutput(const QString& chunk) {
    return read(chunk, false, pendingOutput_);
}

QList<IdevicerestoreOutput::Progress> IdevicerestoreOutput::readError(const QString& chunk) {
    return read(chunk, true, pendingError_);
}

QList<IdevicerestoreOutput::Progress> IdevicerestoreOutput::finish() {
    QList<Progress> changes;
    readLine(std::exchange(pendingOutput_, QString()), false, changes);
    readLine(std::exchange(pendingError_, QString()), true, changes);
    return changes;
}

// A bar redrawn with "\r" is read up to its last "\r" at once, so its progress shows while the
// line goes on; what follows the last "\r" or "\n" waits for the rest of its line.
QList<IdevicerestoreOutput::Progress> IdevicerestoreOutput::read(const QString& chunk,
                                                                 bool standardError,
                                                                 QString& pending) {
    pending += chunk;
    QList<Progress> changes;
    const qsizetype end =
        std::max(pending.lastIndexOf(QLatin1Char('\n')), pending.lastIndexOf(QLatin1Char('\r')));
    if (end < 0)
        return changes;
    const QString whole = pending.left(end);
    pending = pending.mid(end + 1);
    static const QRegularExpression breaks(QStringLiteral("[\r\n]"));
    for (const QString& line : whole.split(breaks, Qt::SkipEmptyParts))
        readLine(line, standardError, changes);
    return changes;
}

void IdevicerestoreOutput::readLine(QString line, bool standardError, QList<Progress>& changes) {
    line = line.trimmed();
    if (line.isEmpty())
        return;
    // A bar the engine left without its newline shares the line with the next message.
    static const QRegularExpression barThenText(
        QStringLiteral(R"(^([A-Za-z][A-Za-z ]*\s*\[[=>\- ]*\]\s*\d{1,3}(?:\.\d+)?%)\s*(\S.*)$)"));
    if (const auto match = barThenText.match(line); match.hasMatch()) {
        readLine(match.captured(1), standardError, changes);
        readLine(match.captured(2), standardError, changes);
        return;
    }
    if (line.startsWith(QLatin1String("ERROR: "))) {
        noteError(line.mid(7).trimmed());
        return;
    }
    if (version_.isEmpty() && line.startsWith(QLatin1String("idevicerestore ")))
        version_ = line;
    if (const QString serial = configurator::serialNumberInBootString(line); !serial.isEmpty())
        serial_ = serial;
    if (standardError) {
        if (!line.startsWith(QLatin1String("WARNING")))
            noteError(line);
        return;
    }
    if (isError(line) || startsWithAny(line, kHintStarts)) {
        noteError(line);
        return;
    }
    if (line == QLatin1String("DONE")) {
        done_ = true;
        return;
    }
    // Before progress: "IPSW Product Version: 15.4" reads like a label and its percentage.
    if (readFirmwareLine(line))
        return;
    if (const auto percent = percentOf(line)) {
        setProgress(*percent, changes);
        return;
    }
    lastLine_ = line;
    if (const QString ecid = afterPrefix(line, "ECID: "); !ecid.isEmpty()) {
        bool ok = false;
        const std::uint64_t value = ecid.toULongLong(&ok);
        if (ok)
            ecid_ = value;
        return;
    }
    if (const QString step = milestoneOf(line); !step.isEmpty())
        setStep(step, changes);
}

bool IdevicerestoreOutput::readFirmwareLine(const QString& line) {
    for (const char* prefix : {"IPSW Product Version: ", "Product Version: "})
        if (const QString version = afterPrefix(line, prefix); !version.isEmpty()) {
            ipswVersion_ = version;
            return true;
        }
    for (const char* prefix : {"IPSW Product Build: ", "Product Build: "})
        if (const QString build = afterPrefix(line, prefix); !build.isEmpty()) {
            ipswBuild_ = build.section(QLatin1Char(' '), 0, 0);
            return true;
        }
    return false;
}

void IdevicerestoreOutput::noteError(const QString& line) {
    if (startsWithAny(line, kHintStarts) && !errors_.isEmpty()) {
        errors_.last() += QLatin1Char(' ') + line;
        return;
    }
    errors_.append(line);
    if (errors_.size() > kKeptErrorLines)
        errors_.removeFirst();
}

void IdevicerestoreOutput::setStep(const QString& step, QList<Progress>& changes) {
    // The Mac is found again after every reboot; only its first finding opens the restore.
    if (step == current_.step || (step == QLatin1String(kFirstStep) && !current_.step.isEmpty()))
        return;
    const auto band = bandOf(step);
    current_ = {step, std::max(current_.progress, band ? band->from : 0.0f)};
    changes.append(current_);
}

// Only a change of a whole percent is news: -P prints a line for every thousandth. The value
// never goes back, though the engine's does at every step.
void IdevicerestoreOutput::setProgress(float fraction, QList<Progress>& changes) {
    const auto band = bandOf(current_.step);
    if (!band)
        return;
    const float progress = band->from + (band->to - band->from) * std::clamp(fraction, 0.0f, 1.0f);
    if (std::floor(progress * 100) <= std::floor(current_.progress * 100))
        return;
    current_.progress = progress;
    changes.append(current_);
}

QString IdevicerestoreOutput::firmware() const {
    if (ipswVersion_.isEmpty() || ipswBuild_.isEmpty())
        return {};
    return QStringLiteral("%1 (%2)").arg(ipswVersion_, ipswBuild_);
}

}  // namespace engines
