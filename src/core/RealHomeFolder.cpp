#include "core/RealHomeFolder.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace core {

QString realHomeFolderForUser(uid_t uid) {
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found);
    if (!found) {
        std::fprintf(stderr,
                     "*** Assertion failure in -[NSFileManager(ZMRRealHomeFolder) realHomeFolder], "
                     "NSFileManager+ZMRRealHomeFolder: no user database entry for uid %u\n",
                     static_cast<unsigned>(uid));
        std::abort();
    }
    return QString::fromLocal8Bit(found->pw_dir);
}

QString realHomeFolder() { return realHomeFolderForUser(getuid()); }

}  // namespace core
