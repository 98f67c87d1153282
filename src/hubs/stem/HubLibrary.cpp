#include "hubs/stem/HubLibrary.h"

#include "core/Log.h"

#include <QDir>
#include <QFileInfo>

namespace stem {

namespace {

void logFromModule(const char* line) {
    ZMRLogLevel1(QString::fromUtf8(line));
}

// The executable's own folder, without needing a QCoreApplication.
QString executableFolder() {
    return QFileInfo(QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath()).absolutePath();
}

const QString kBuildHint = QStringLiteral(
    "build one against Acroname's BrainStem2 SDK from /usr/share/tarvel/hub-module (see its "
    "README), or name one with TARVEL_HUB_LIBRARY");

}  // namespace

QStringList HubLibrary::searchPaths() {
    const QString named = qEnvironmentVariable(kPathVariable);
    if (!named.isEmpty())
        return {named};
    const QString fileName = QString::fromLatin1(kFileName);
    return {QDir::cleanPath(executableFolder() + QStringLiteral("/../lib/tarvel/") + fileName),
            QStringLiteral("/usr/local/lib/tarvel/") + fileName};
}

const HubLibrary& HubLibrary::process() {
    static const HubLibrary library(searchPaths());
    return library;
}

HubLibrary::HubLibrary(const QStringList& candidates) : candidates_(candidates) {
    for (const QString& candidate : candidates) {
        if (QFileInfo::exists(candidate)) {
            load(candidate);
            return;
        }
    }
    problem_ = QStringLiteral("no hub library module (looked for %1), so no Acroname hub can be "
                              "reached: %2")
                   .arg(candidates.join(QStringLiteral(", ")), kBuildHint);
}

void HubLibrary::load(const QString& path) {
    path_ = path;
    library_.setFileName(path);
    if (!library_.load()) {
        state_ = State::LoadFailed;
        problem_ = QStringLiteral("the hub library module %1 does not load (%2); %3")
                       .arg(path, library_.errorString(), kBuildHint);
        return;
    }
    const auto interfaceVersion = reinterpret_cast<ModuleInterfaceVersionFunction>(
        library_.resolve(kModuleInterfaceVersionSymbol));
    const auto describe =
        reinterpret_cast<ModuleDescriptionFunction>(library_.resolve(kModuleDescriptionSymbol));
    const auto create =
        reinterpret_cast<ModuleCreateBackendFunction>(library_.resolve(kModuleCreateBackendSymbol));
    if (interfaceVersion == nullptr || describe == nullptr || create == nullptr) {
        state_ = State::LoadFailed;
        problem_ = QStringLiteral("%1 is not a Tarvel hub library module (it lacks %2); %3")
                       .arg(path, QString::fromLatin1(kModuleCreateBackendSymbol), kBuildHint);
        return;
    }
    // Never unloaded: backends and the modules they create run code from it until exit.
    if (const int version = interfaceVersion(); version != kModuleInterfaceVersion) {
        state_ = State::WrongVersion;
        problem_ = QStringLiteral("the hub library module %1 was built for another Tarvel (module "
                                  "interface %2, this Tarvel needs %3): %4")
                       .arg(path)
                       .arg(version)
                       .arg(kModuleInterfaceVersion)
                       .arg(kBuildHint);
        return;
    }
    state_ = State::Loaded;
    description_ = QString::fromUtf8(describe());
    create_ = create;
}

std::shared_ptr<Backend> HubLibrary::createBackend() const {
    if (create_ == nullptr)
        return nullptr;
    return std::shared_ptr<Backend>(create_(logFromModule));
}

}  // namespace stem
