#pragma once

#include <QString>

#include <functional>
#include <optional>

namespace configurator {

// The places where Apple Configurator leaves unpacked firmware and temporary items behind.
struct CachePlaces {
    QString temporaryFolder;          // entries named restore_bundle_* go
    QString containerTemporaryItems;  // every entry goes
    QString varFolders;               // every TemporaryItems folder of a DeviceService folder goes

    // The real places, with the container under the home folder of the user we run as.
    static CachePlaces system();
    // The same layout below another root, so tests never touch the real folders.
    static CachePlaces under(const QString& root);
};

// Removes an item with everything it contains; answers the error text when it could not.
using ItemRemover = std::function<std::optional<QString>(const QString& path)>;
ItemRemover fileSystemRemover();

using CacheCleanupCompletion = std::function<void(bool success, const QString& message)>;

// Works on the caller's thread and calls `completed` exactly once before it returns:
// (true, "") when everything that had to go went, else (false, why) at the first failure that
// counts. Stale bundles in the temporary folder are removed on a best-effort basis only.
void clearAC2Cache(const CachePlaces& places, const ItemRemover& remove,
                   const CacheCleanupCompletion& completed);

}  // namespace configurator
