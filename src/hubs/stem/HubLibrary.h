#pragma once

#include "hubs/stem/Backend.h"
#include "hubs/stem/ModuleInterface.h"

#include <QLibrary>
#include <QString>
#include <QStringList>

#include <memory>

namespace stem {

// The hub library module: the vendor SDK's adapter, built apart from Tarvel and loaded at start
// when it is there, so one installed Tarvel serves both the simulator and a cabled bench.
class HubLibrary {
public:
    enum class State { Loaded, Absent, WrongVersion, LoadFailed };

    // The environment variable that names a module file instead of the usual places.
    static constexpr char kPathVariable[] = "TARVEL_HUB_LIBRARY";
    static constexpr char kFileName[] = "tarvel-brainstem.so";

    // Where a module is looked for, first found wins: the file TARVEL_HUB_LIBRARY names (alone,
    // when set), else lib/tarvel beside the executable's folder, then /usr/local/lib/tarvel.
    static QStringList searchPaths();

    // The module of this process, looked for once on first use.
    static const HubLibrary& process();

    // Loads the first of candidates that exists; Absent when none does.
    explicit HubLibrary(const QStringList& candidates);

    State state() const { return state_; }
    // The file loaded or refused; empty when absent.
    QString path() const { return path_; }
    // What the module says it is (interface and SDK features); empty unless loaded.
    QString description() const { return description_; }
    // Why the module is not in use, with what to do about it; empty when loaded.
    QString problem() const { return problem_; }

    // A new backend from the module; null unless loaded.
    std::shared_ptr<Backend> createBackend() const;

private:
    void load(const QString& path);

    QStringList candidates_;
    QLibrary library_;
    State state_ = State::Absent;
    QString path_;
    QString description_;
    QString problem_;
    ModuleCreateBackendFunction create_ = nullptr;
};

}  // namespace stem
