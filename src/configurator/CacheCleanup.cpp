#include "configurator/CacheCleanup.h"

#include "core/Log.h"

#include <QDir>

#include <pwd.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>
#include <vector>

namespace fs = std::filesystem;

namespace configurator {
namespace {

const QString deviceServiceFolder = QStringLiteral("com.apple.configurator.xpc.DeviceService");
const QString containerSuffix = QStringLiteral(
    "/Library/Containers/com.apple.configurator.xpc.DeviceService/Data/tmp/TemporaryItems");

fs::path pathOf(const QString& text) {
    return fs::path(text.toStdString());
}
QString textOf(const fs::path& path) {
    return QString::fromStdString(path.string());
}

// A folder that cannot be listed counts as empty.
std::vector<QString> directEntryNames(const QString& folder) {
    std::vector<QString> names;
    std::error_code error;
    for (fs::directory_iterator it(pathOf(folder), error), end; !error && it != end;
         it.increment(error))
        names.push_back(QString::fromStdString(it->path().filename().string()));
    return names;
}

void removeStaleBundles(const QString& folder, const ItemRemover& remove) {
    for (const QString& name : directEntryNames(folder)) {
        if (name.startsWith(QStringLiteral("restore_bundle_")))
            remove(folder + '/' + name);
    }
}

// Answers the message for the user when an entry would not go in two tries.
std::optional<QString> emptyContainer(const QString& folder, const ItemRemover& remove) {
    std::error_code error;
    if (!fs::exists(pathOf(folder), error))
        return std::nullopt;
    for (const QString& name : directEntryNames(folder)) {
        const QString entry = folder + '/' + name;
        if (!remove(entry))
            continue;
        const std::optional<QString> second = remove(entry);
        if (!second)
            continue;
        ZMRLogDebug(QStringLiteral("remove item error: %1").arg(*second));
        return QStringLiteral(
                   "Error removing cache files. Please remove files at %1 before continuing")
            .arg(folder);
    }
    return std::nullopt;
}

// Depth first, one listing per folder: a folder that vanishes or cannot be read mid-walk costs
// only itself, and the walk goes on with the rest. Links are not followed.
std::optional<QString> removeDeviceServiceTemporaryItems(const fs::path& folder,
                                                         const ItemRemover& remove) {
    std::error_code error;
    for (fs::directory_iterator it(folder, fs::directory_options::skip_permission_denied, error),
         end;
         !error && it != end; it.increment(error)) {
        std::error_code typeError;
        if (it->symlink_status(typeError).type() != fs::file_type::directory)
            continue;
        if (QString::fromStdString(it->path().filename().string()) == deviceServiceFolder) {
            const fs::path items = it->path() / "TemporaryItems";
            std::error_code statusError;
            if (fs::is_directory(items, statusError))
                if (std::optional<QString> failure = remove(textOf(items)))
                    return failure;
        }
        if (std::optional<QString> failure = removeDeviceServiceTemporaryItems(it->path(), remove))
            return failure;
    }
    return std::nullopt;
}

// "~" as the shell expands it for the user we run as: the user database's home folder, else
// HOME. Unlike the real home folder of the logs, a missing entry is no reason to stop.
QString homeFolderOfEffectiveUser() {
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found);
    if (found != nullptr && found->pw_dir != nullptr && found->pw_dir[0] != '\0')
        return QString::fromLocal8Bit(found->pw_dir);
    return QDir::homePath();
}

}  // namespace

CachePlaces CachePlaces::system() {
    return {QStringLiteral("/tmp"), homeFolderOfEffectiveUser() + containerSuffix,
            QStringLiteral("/var/folders")};
}

CachePlaces CachePlaces::under(const QString& root) {
    return {root + QStringLiteral("/tmp"), root + QStringLiteral("/home") + containerSuffix,
            root + QStringLiteral("/var/folders")};
}

ItemRemover fileSystemRemover() {
    return [](const QString& path) -> std::optional<QString> {
        std::error_code error;
        fs::remove_all(pathOf(path), error);
        if (!error)
            return std::nullopt;
        return QStringLiteral("“%1” couldn’t be removed: %2")
            .arg(textOf(pathOf(path).filename()), QString::fromStdString(error.message()));
    };
}

void clearAC2Cache(const CachePlaces& places, const ItemRemover& remove,
                   const CacheCleanupCompletion& completed) {
    removeStaleBundles(places.temporaryFolder, remove);
    if (std::optional<QString> message = emptyContainer(places.containerTemporaryItems, remove)) {
        completed(false, *message);
        return;
    }
    if (std::optional<QString> failure =
            removeDeviceServiceTemporaryItems(pathOf(places.varFolders), remove)) {
        completed(false, *failure);
        return;
    }
    completed(true, QString(""));
}

}  // namespace configurator
