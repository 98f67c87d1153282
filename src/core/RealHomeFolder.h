#pragma once

#include <QString>

#include <sys/types.h>

namespace core {

// The home folder the user database records for the real user id, not $HOME, which sudo or a
// sandbox may have changed. A user id with no entry stops the program.
QString realHomeFolder();
QString realHomeFolderForUser(uid_t uid);

}  // namespace core
