#pragma once

#include <QString>
#include <QVariantMap>

namespace core {

class Settings;

struct DefaultsResource {
    enum class State { Absent, Dictionary, Unreadable };
    State state = State::Absent;
    QVariantMap values;
};

// Reads the fallback values shipped with the application.
DefaultsResource readDefaultsResource(const QString& path = QStringLiteral(":/defaults.plist"));

// Registers the shipped fallback values; a resource that is present but not a dictionary stops
// the program, since every later read would silently see zeros.
void registerBundledDefaults(Settings& settings,
                             const QString& path = QStringLiteral(":/defaults.plist"));

}  // namespace core
