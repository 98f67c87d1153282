#pragma once

#include <QString>

namespace core {
class Settings;
}

namespace records {

// Which firmware a restore put on the Mac: "latest" (the tool's own pick) or the custom file's
// path with its SHA-256, so that a certificate names the exact image.
struct FirmwareUsed {
    QString firmware = QStringLiteral("latest");
    QString sha256;

    // From the restore settings. Hashing a firmware file reads gigabytes, so it runs off the
    // main thread, once per file: the digest is kept while the file's size and time stay.
    static FirmwareUsed fromSettings(const core::Settings& settings);
    static FirmwareUsed ofFile(const QString& path);
};

}  // namespace records
