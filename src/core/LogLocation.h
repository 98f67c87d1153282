#pragma once

#include <QString>

#include <sys/types.h>

#include <functional>

namespace core {

// What decides where the log file goes. The shared logger fills it from the preferences, the
// user database and the bundle; tests fill it by hand.
struct LogLocationInputs {
    QString logFolderPathPreference;
    QString logFileNamePreference;
    QString bundleLogFileName;
    uid_t realUserId = 0;
    std::function<QString()> realHomeFolder;
    std::function<void()> touchMarker;
    QString rootFolder = QStringLiteral("/tmp/vandor");
    QString uniqueFolderTemplate = QStringLiteral("/tmp/vandor-XXXXXX");
};

struct LogLocation {
    QString folder;
    QString fileName;
    // Set for folders under the shared /tmp: the file is made readable by its owner only.
    bool ownerOnly = false;

    QString filePath() const { return folder + '/' + fileName; }
};

// Chooses the log folder and file name, creating the folder as needed.
LogLocation chooseLogLocation(const LogLocationInputs& inputs);

// The per-user folder under the home folder: Library/Logs on macOS, .local/state/tarvel elsewhere.
QString userLogFolder(const QString& home);

// Runs "/usr/bin/touch /tmp/vnd" and waits for it; the result is of no interest.
void touchMarkerFile();

// The inputs for this process: preferences, real user id, user database, bundle.
LogLocationInputs processLogLocationInputs();

}  // namespace core
