#include "engines/IdevicerestoreOutput.h"

#include <QFile>

#include <gtest/gtest.h>

namespace output_samples_test {

using engines::IdevicerestoreOutput;

QString sampleText(const QString& file) {
    QFile sample(QStringLiteral(TARVEL_ENGINES_SAMPLES "/") + file);
    return sample.open(QIODevice::ReadOnly) ? QString::fromUtf8(sample.readAll()) : QString();
}

// What a reader should make of a recorded run. The progress changes are written one step after
// the other, each with the values that followed it ("Sending iBSS 0 0.5 1").
struct Sample {
    const char* name;
    const char* changes;
    bool finished;
    const char* errorLines;  // " | " between lines
    const char* serialNumber;
    const char* versionLine;
    const char* firmware;
    std::uint64_t ecid;
};

void PrintTo(const Sample& sample, std::ostream* out) {
    *out << sample.name;
}

std::string summary(const QString& changes, bool finished, const QString& errorLines,
                    const QString& lastErrorLine, const QString& serial, const QString& version,
                    const QString& firmware, std::uint64_t ecid) {
    return QStringList{changes,    finished ? "finished" : "not finished",
                       errorLines, "last error: " + lastErrorLine,
                       serial,     version,
                       firmware,   QString::number(ecid)}
        .join('\n')
        .toStdString();
}

// "Step v1 v2 | Next v3": the values of the whole restore under the step that gave them.
void note(QStringList& changes, QString& step, const QList<IdevicerestoreOutput::Progress>& read) {
    for (const auto& change : read) {
        if (change.step != step || changes.isEmpty())
            changes << change.step;
        step = change.step;
        changes.last() += ' ' + QString::number(change.progress);
    }
}

// Standard output goes first, then standard error, each cut into pieces of `chunkSize`
// characters (0: whole), as a busy pipe may hand them over.
std::string readInChunks(const QString& output, const QString& error, qsizetype chunkSize) {
    IdevicerestoreOutput reader;
    QStringList changes;
    QString step;
    const auto feed = [&](const QString& text, bool standardError) {
        const qsizetype size = chunkSize > 0 ? chunkSize : qMax<qsizetype>(text.size(), 1);
        for (qsizetype at = 0; at < text.size(); at += size)
            note(changes, step,
                 standardError ? reader.readError(text.mid(at, size))
                               : reader.readOutput(text.mid(at, size)));
    };
    feed(output, false);
    feed(error, true);
    note(changes, step, reader.finish());
    return summary(changes.join(" | "), reader.finished(), reader.errorLines().join(" | "),
                   reader.lastErrorLine(), reader.serialNumber(), reader.versionLine(),
                   reader.firmware(), reader.ecid().value_or(0));
}

const char* const currentBuild =
    "idevicerestore 1.0.0-270-g405fcd1 (libirecovery 1.3.0, libtatsu 1.0.5)";

const Sample samples[] = {
    {"plain-success",
     "Preparing restore 0 | Extracting filesystem 0.01 0.02 0.03 | Personalizing firmware 0.03 | "
     "Sending iBSS 0.04 0.05 | Sending iBEC 0.05 | Sending RestoreRamDisk 0.06 | "
     "Sending RestoreDeviceTree 0.06 | Sending RestoreKernelCache 0.06 | "
     "Waiting for restore mode 0.08 | Creating partition map 0.08 | Creating filesystem 0.08 | "
     "Restoring image 0.1 0.436 0.9 | Verifying restore 0.9 0.95 | Flashing firmware 0.95 0.99",
     true, "", "C02FK1ZNQ6L4", currentBuild, "15.3.1 (24D70)", 0x18C2A4B1E3F12E},
    {"old-style-restore-mode",
     "Preparing restore 0 | Personalizing firmware 0.03 | Sending iBSS 0.04 0.05 | "
     "Sending iBEC 0.05 | Sending RestoreRamDisk 0.06 | Sending RestoreDeviceTree 0.06 | "
     "Sending RestoreKernelCache 0.06 | Waiting for restore mode 0.08",
     false, "Device failed to enter restore mode. Make sure that usbmuxd is running.", "H4TQ2LL0P9",
     "idevicerestore 1.0.0-251-g7d4f2e9 (libirecovery 1.2.1, libtatsu 1.0.3)", "14.7.2 (23H311)",
     0x1234567890ABCDEF},
    {"bars-without-plain-progress",
     "Preparing restore 0 | Extracting filesystem 0.01 0.03 | Personalizing firmware 0.03 | "
     "Sending iBSS 0.04 0.05 | Sending iBEC 0.05 | Sending RestoreRamDisk 0.06 | "
     "Waiting for restore mode 0.08 | Creating partition map 0.08 | "
     "Restoring image 0.1 0.3184 0.9 | Verifying restore 0.9 0.925 0.95",
     true, "", "C07DV3QZPJ8K", currentBuild, "15.3.1 (24D70)", 0x1234},
    {"verification-error",
     "Preparing restore 0 | Personalizing firmware 0.03 | Sending iBSS 0.04 0.05 | "
     "Sending iBEC 0.05 | Sending RestoreRamDisk 0.06 | Waiting for restore mode 0.08 | "
     "Creating partition map 0.08 | Restoring image 0.1 0.9 | Verifying restore 0.9 0.9125",
     false, "Status: Verification Error | Unable to restore device", "FVFH3K2LQ05N", currentBuild,
     "15.1.1 (24B91)", 0x12345678},
};

class RecordedRun : public testing::TestWithParam<Sample> {};

// A line cut anywhere by the pipe, a bar redrawn after "\r" included, is read exactly once.
TEST_P(RecordedRun, ReadsTheSameWhateverTheChunkSize) {
    const Sample& sample = GetParam();
    const QString name = QString::fromLatin1(sample.name);
    const QString output = sampleText(name + ".txt");
    ASSERT_FALSE(output.isEmpty()) << "no sample " << sample.name;
    const QString errorLines = QString::fromUtf8(sample.errorLines);
    const std::string expected =
        summary(sample.changes, sample.finished, errorLines, errorLines.section(" | ", -1),
                sample.serialNumber, sample.versionLine, sample.firmware, sample.ecid);
    for (const qsizetype chunkSize : {0, 7, 1}) {
        SCOPED_TRACE(testing::Message() << "chunks of " << chunkSize);
        EXPECT_EQ(readInChunks(output, sampleText(name + ".stderr.txt"), chunkSize), expected);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Samples, RecordedRun, testing::ValuesIn(samples),
    [](const testing::TestParamInfo<Sample>& recorded) {
        return QString::fromLatin1(recorded.param.name).remove('-').toStdString();
    });

// A macOS version without a third number ("15.4") looks like a "<Label>: <percent>" progress line.
TEST(IdevicerestoreOutputLines, TwoPartFirmwareVersionIsNoProgress) {
    const std::string reading = readInChunks(
        "Found device in DFU mode\nIPSW Product Version: 15.4\nIPSW Product Build: 24E248 Major: "
        "24\n",
        {}, 0);
    EXPECT_EQ(reading, summary("Preparing restore 0", false, "", "", "", "", "15.4 (24E248)", 0));
}

}  // namespace output_samples_test
