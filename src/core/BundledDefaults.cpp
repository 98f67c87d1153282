#include "core/BundledDefaults.h"

#include "core/PropertyList.h"
#include "core/Settings.h"

#include <QFile>

#include <cstdio>
#include <cstdlib>

namespace core {

DefaultsResource readDefaultsResource(const QString& path) {
    QFile file(path);
    if (!file.exists()) return {};
    if (!file.open(QIODevice::ReadOnly)) return {DefaultsResource::State::Unreadable, {}};
    const auto parsed = parsePropertyList(file.readAll());
    if (!parsed || parsed->typeId() != QMetaType::QVariantMap)
        return {DefaultsResource::State::Unreadable, {}};
    return {DefaultsResource::State::Dictionary, parsed->toMap()};
}

void registerBundledDefaults(Settings& settings, const QString& path) {
    const DefaultsResource resource = readDefaultsResource(path);
    if (resource.state == DefaultsResource::State::Unreadable) {
        std::fprintf(stderr, "Tarvel: the defaults resource %s cannot be read as a dictionary\n",
                     qPrintable(path));
        std::abort();
    }
    settings.registerDefaults(resource.values);
}

}  // namespace core
