#include "StationBytes.h"

#include "StationConfig.h"

#include <QFile>
#include <QScopeGuard>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace sim {
namespace {

QString systemError() {
    return QString::fromLocal8Bit(std::strerror(errno));
}

}  // namespace

std::optional<QByteArray> readStationBytes(const QString& path, QString& problem) {
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        problem = QStringLiteral("cannot be read: ") + systemError();
        return std::nullopt;
    }
    const auto closeFile = qScopeGuard([fd] { ::close(fd); });
    struct stat info {};
    if (::fstat(fd, &info) != 0) {
        problem = QStringLiteral("cannot be read: ") + systemError();
        return std::nullopt;
    }
    if (S_ISDIR(info.st_mode)) {
        problem = QStringLiteral("is a folder, not a station file");
        return std::nullopt;
    }
    if (!S_ISREG(info.st_mode)) {
        problem = QStringLiteral("is not a regular file (a device, FIFO or socket cannot be one)");
        return std::nullopt;
    }
    const QString tooLarge = QStringLiteral("is larger than the %1 MiB a station file may have")
                                 .arg(StationLoad::maxFileBytes / (1024 * 1024));
    if (info.st_size > StationLoad::maxFileBytes) {
        problem = tooLarge;
        return std::nullopt;
    }
    // One byte more than allowed tells a file that grew since fstat, without reading the rest.
    QByteArray bytes(StationLoad::maxFileBytes + 1, Qt::Uninitialized);
    qsizetype total = 0;
    while (total < bytes.size()) {
        const ssize_t got = ::read(fd, bytes.data() + total, size_t(bytes.size() - total));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0) {
            problem = QStringLiteral("cannot be read: ") + systemError();
            return std::nullopt;
        }
        if (got == 0)
            break;
        total += got;
    }
    if (total > StationLoad::maxFileBytes) {
        problem = tooLarge;
        return std::nullopt;
    }
    bytes.truncate(total);
    return bytes;
}

}  // namespace sim
