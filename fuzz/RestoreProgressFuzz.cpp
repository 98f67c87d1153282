// A chunk of the restore tool's output, read as the restore's output callbacks read it: the
// failure reasons it carries, the warnings for lines that cannot be read, then the progress and
// its status text. The same chunk is also read as standard error.
#include "configurator/RestoreCommand.h"

#include <QString>
#include <QStringDecoder>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Decoded as the task runner decodes a chunk: bytes that are not UTF-8 give a null string.
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString chunk = decoder(QByteArrayView(data, static_cast<qsizetype>(size)));
    if (decoder.hasError())
        chunk = QString();
    configurator::errorLinesOf(chunk, false);
    for (const auto& unreadable : configurator::unreadableProgressLines(chunk))
        configurator::unreadableProgressWarning(0x1A2B3C4D5E6F, unreadable);
    if (const auto progress = configurator::parseRestoreProgress(chunk))
        configurator::restoreStatusText(progress->progress);
    configurator::errorLinesOf(chunk, true);
    return 0;
}
