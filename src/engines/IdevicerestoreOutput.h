#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <optional>

namespace engines {

// What one Mac's idevicerestore has said so far, read from its output chunk by chunk: with or
// without `-P`, errors in either style (no prefix on standard output since the 2025 builds,
// "ERROR: " on standard error before), and bars drawn with "\r" that share a line with the next
// message. A line split over two chunks is read once it is whole.
class IdevicerestoreOutput {
  public:
    // The step the queue shows and the progress of the whole restore (0 to 1, never going back;
    // -1 before the first step), as Apple Configurator's progress reads.
    struct Progress {
        QString step;
        float progress = -1.0f;
        bool operator==(const Progress&) const = default;
    };

    // Each answers the progress changes the chunk carried, in order.
    QList<Progress> readOutput(const QString& chunk);
    QList<Progress> readError(const QString& chunk);
    // The output has ended: a last line without its newline is read too.
    QList<Progress> finish();

    // "DONE" came: with exit status 0, the one sign of a restore that worked.
    bool finished() const { return done_; }
    // The engine's error lines, oldest first, the last few only; a hint the engine adds below an
    // error ("Make sure that usbmuxd is running.") is kept with that error.
    const QStringList& errorLines() const { return errors_; }
    QString lastErrorLine() const { return errors_.isEmpty() ? QString() : errors_.last(); }
    // The last line that was neither progress nor an error: the engine's last words when it
    // failed with an error of a form this reader does not know.
    const QString& lastLine() const { return lastLine_; }
    // The engine's first line, "idevicerestore 1.0.0-270-g405fcd1 (libirecovery …)".
    const QString& versionLine() const { return version_; }
    // The serial number the Mac named in recovery mode; empty until then.
    const QString& serialNumber() const { return serial_; }
    // The ECID the engine found last: a Mac through Port DFU comes back with another one.
    std::optional<std::uint64_t> ecid() const { return ecid_; }
    // The firmware, as "15.3.1 (24D70)" once both were printed.
    QString firmware() const;

  private:
    QList<Progress> read(const QString& chunk, bool standardError, QString& pending);
    void readLine(QString line, bool standardError, QList<Progress>& changes);
    void noteError(const QString& line);
    bool readFirmwareLine(const QString& line);
    void setStep(const QString& step, QList<Progress>& changes);
    void setProgress(float progress, QList<Progress>& changes);

    QString pendingOutput_;
    QString pendingError_;
    Progress current_;
    QStringList errors_;
    QString version_;
    QString serial_;
    QString lastLine_;
    QString ipswVersion_;
    QString ipswBuild_;
    std::optional<std::uint64_t> ecid_;
    bool done_ = false;
};

}  // namespace engines
