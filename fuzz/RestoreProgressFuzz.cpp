// The restore progress-line parser and the status text of whatever progress it reads.
#include "configurator/RestoreCommand.h"

#include <QString>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QString chunk =
        QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    if (const auto progress = configurator::parseRestoreProgress(chunk))
        configurator::restoreStatusText(progress->progress);
    return 0;
}
