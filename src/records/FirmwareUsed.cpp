#include "records/FirmwareUsed.h"

#include "core/Settings.h"
#include "core/SettingsKeys.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QHash>

#include <mutex>

namespace records {
namespace {

struct Digest {
    qint64 size = -1;
    QDateTime modified;
    QString sha256;
};

std::mutex cacheMutex;
QHash<QString, Digest>& cache() {
    static QHash<QString, Digest> digests;
    return digests;
}

QString digestOf(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(&file);
    return QString::fromLatin1(hash.result().toHex());
}

}  // namespace

FirmwareUsed FirmwareUsed::ofFile(const QString& path) {
    const QFileInfo info(path);
    FirmwareUsed used;
    used.firmware = info.absoluteFilePath();
    {
        std::lock_guard lock(cacheMutex);
        const Digest known = cache().value(used.firmware);
        if (known.size == info.size() && known.modified == info.lastModified() &&
            !known.sha256.isEmpty()) {
            used.sha256 = known.sha256;
            return used;
        }
    }
    used.sha256 = digestOf(path);
    std::lock_guard lock(cacheMutex);
    cache().insert(used.firmware, {info.size(), info.lastModified(), used.sha256});
    return used;
}

FirmwareUsed FirmwareUsed::fromSettings(const core::Settings& settings) {
    if (!settings.boolForKey(core::keys::useCustomIPSW))
        return {};
    return ofFile(settings.stringForKey(core::keys::customIPSWPath));
}

}  // namespace records
